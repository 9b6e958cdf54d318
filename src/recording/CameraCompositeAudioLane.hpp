#pragma once

#include "base/MediaTime.hpp"
#include "base/SerialQueue.hpp"
#include "model/Sound.hpp"
#include "ports/MediaWriting.hpp"
#include "recording/CameraCompositeFailure.hpp"

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

namespace tessarin {

enum class RecordingAudioLane : std::uint8_t { system, microphone };

// The sound of one source on its way into a segment's file: moved onto the time of the pictures, kept
// strictly increasing, and held back, for half a second at most, while the coder is busy. Confined to the
// segment's queue.
class CameraCompositeAudioLane {
 public:
  static constexpr std::chrono::milliseconds drainDelay{5};

  // The input outlives the lane.
  CameraCompositeAudioLane(RecordingAudioLane lane, AudioInput& input);

  // Takes a sample at its host time. One from before the epoch is left out whole, without a word.
  std::optional<CameraCompositeFailure> append(const AudioSample& sample, MediaTime epoch);
  // Hands over what waits as far as the input is ready.
  std::optional<CameraCompositeFailure> drain();
  bool isWaiting() const { return !pending_.empty(); }

  // Has `drain` called on the queue after the delay, unless that is under way already. The call begins with
  // unscheduleDrain().
  void scheduleDrain(SerialQueue& queue, SerialQueue::Task drain);
  void unscheduleDrain() { drainTimer_.reset(); }

  void markAsFinished() { input_.markAsFinished(); }

  RecordingAudioLane lane() const { return lane_; }
  // Starts of the first and the newest sample that was accepted, from the epoch; not numeric before it.
  MediaTime firstTime() const { return firstTime_; }
  MediaTime lastTime() const { return lastTime_; }
  // The most that has waited, in whole milliseconds.
  std::int64_t maximumQueueMs() const { return maximumQueueMs_; }

 private:
  std::optional<CameraCompositeFailure> enqueue(const AudioSample& sample);
  MediaTime queuedDuration() const;
  CameraCompositeFailure failure(std::string_view stage) const;

  const RecordingAudioLane lane_;
  AudioInput& input_;
  std::deque<AudioSample> pending_; // in the order of arrival, on the time of the file
  MediaTime firstTime_;
  MediaTime lastTime_;
  std::int64_t maximumQueueMs_ = 0;
  std::unique_ptr<QueueTimer> drainTimer_; // while a drain is on its way
};

} // namespace tessarin
