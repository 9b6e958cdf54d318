#pragma once

#include "recording/CameraCompositeSegment.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace tessarin {

// How long each step of a detachment took, in whole milliseconds.
struct RecordingDetachTiming {
  std::uint64_t microphoneStopMs = 0;
  std::uint64_t outputRemovalMs = 0;
  std::uint64_t audioDrainMs = 0;
  std::uint64_t writerQueueDrainMs = 0;
};

// Writes one recording segment: a crash-safe fragmented MPEG-4 file of the screen's pictures. Made for each
// segment anew, attached to the running stream, and later detached and finished, or cancelled. It owns the
// queue "com.tessarin.recording.camera-compositor", to which everything inside is confined; its methods
// are for the owner's one thread, which must not be that queue's. Detach it before it is destroyed; a
// segment that was neither finished nor cancelled leaves what it has written readable.
class CameraCompositeRecorder {
 public:
  // Throws MediaUnavailable, and NativeServiceError codecUnavailable or recordingFailed.
  CameraCompositeRecorder(const CameraCompositeSetup& setup, const QueueFactory& makeQueue);
  ~CameraCompositeRecorder();
  CameraCompositeRecorder(const CameraCompositeRecorder&) = delete;
  CameraCompositeRecorder& operator=(const CameraCompositeRecorder&) = delete;

  // From now on takes the stream's pictures. Throws CaptureFailure.
  void attach(ScreenStream& stream);
  // Stops all delivery; on return no sample is under way. Nothing to remove when not attached.
  RecordingDetachTiming detach(ScreenStream& stream);

  // Blocks until the first frame is written. Throws NativeServiceError: the writer's first failure, or
  // recordingScreenStalled after the timeout.
  void waitUntilStarted(SerialQueue::Duration timeout);

  // Closes the file and blocks until it is whole and durable; writes the summary line. To be called once,
  // detached. Throws NativeServiceError: the first failure of the writer's life.
  void finish();
  // Drops the file.
  void cancel();

  // How long the segment has been recording: its written pictures, or the host clock since its epoch until
  // it was finished, whichever is longer. Zero before the first frame.
  MediaTime recordedDuration() const;
  // Host-clock nanoseconds of the first frame; nothing before it.
  std::optional<std::uint64_t> epochHostTimeNanoseconds() const;

 private:
  const HostClock& clock_;
  std::unique_ptr<SerialQueue> queue_; // destroyed last, so that it outlives the segment's timers
  std::shared_ptr<CameraCompositeSegment> segment_;
  bool isAttached_ = false; // owner's thread
};

} // namespace tessarin
