#pragma once

#include "base/SerialQueue.hpp"
#include "modules/media/AudioPlacement.hpp"
#include "modules/media/AudioSequencer.hpp"
#include "modules/media/ReadinessObservers.hpp"
#include "modules/media/WriterState.hpp"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace tessarin::media {

// One sound track of a writer. Samples wait as they are, ten seconds of them at most, half a second where the
// source can wait, and are placed in time and coded on a thread of the track's own.
class AudioTrackInput final : public AudioInput {
 public:
  struct Sink {
    // The track's packets in order. On the track's thread.
    std::function<void(CodedSound sound)> coded;
    // The coder gave up. On the track's thread.
    std::function<void(MediaWriterError error)> failed;
  };

  // Throws CoderFailure when the coder cannot be had. The state outlives the input.
  AudioTrackInput(const AudioSettings& settings, WriterState& state, Sink sink);
  // Drops what waits unless it is being finished, and joins the thread.
  ~AudioTrackInput() override;
  AudioTrackInput(const AudioTrackInput&) = delete;
  AudioTrackInput& operator=(const AudioTrackInput&) = delete;

  bool isReadyForMoreMediaData() const override;
  std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler) override;
  void markAsFinished() override;
  bool append(const AudioSample& sample) override;

  const container::SampleDescription& description() const { return coder_->description(); }
  std::int32_t sampleRate() const { return settings_.sampleRate; }
  void startSession(MediaTime sourceTime) { sessionStart_ = sourceTime; }
  // No sound will come any more for what lies before the frame. Any thread.
  void giveUpBefore(std::int64_t frame);
  // Codes what waits, and silence from there to the frame where the track ends, then calls on the track's
  // thread. Nothing may be appended any more.
  void finish(std::int64_t endFrame, std::function<void()> completion);
  // Drops what waits, and waits for the coder.
  void stop();
  // Returns when all that was handed over has been dealt with. Not on the track's thread.
  void wait();
  // Readiness may have changed for a reason outside the track. Any thread.
  void notifyReadiness() { observers_.notify(); }

 private:
  struct Waiting {
    AudioSample sample;
    std::int64_t start = 0; // frames from the beginning of the track
  };

  bool hasRoom() const;
  bool takes(const AudioSample& sample) const;
  std::optional<Waiting> nextWaiting(bool& freedRoom);
  void codeNext();
  void code(const Waiting& waiting);
  void codeSilence(std::int64_t frames);
  bool isCoding() const { return !isStopped_ && state_.isWriting(); }
  template<class Work> void guarded(const Work& work);

  const AudioSettings settings_;
  const std::int64_t mostWaiting_; // frames
  WriterState& state_;
  const Sink sink_;
  ReadinessObservers observers_;
  std::atomic<bool> isStopped_ = false;  // what waits is dropped
  std::atomic<bool> isFinished_ = false; // nothing more is taken

  // Of the caller.
  MediaTime sessionStart_ = MediaTime::zero();
  bool isFinishing_ = false;

  mutable std::mutex mutex_;
  std::deque<Waiting> line_;       // under the mutex
  std::int64_t waitingFrames_ = 0; // under the mutex

  // Of the track's thread, once it has been handed something.
  const std::unique_ptr<AacCoder> coder_;
  AudioSequencer sequencer_;
  AudioPlacement placement_;
  std::vector<float> stretched_;

  const std::unique_ptr<SerialQueue> queue_; // last, so that its tasks end first
};

} // namespace tessarin::media
