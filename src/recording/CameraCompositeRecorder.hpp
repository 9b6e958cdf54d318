#pragma once

#include "recording/CameraCompositeSegment.hpp"
#include "recording/RecordingStream.hpp"

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

// Writes one recording segment: a crash-safe fragmented MPEG-4 file of the screen's pictures and, as far as
// they are asked for, of the camera's pictures, the computer's sound and the microphone's, each a track of
// its own. Made for each segment anew, attached to the running stream, and later detached and finished, or
// cancelled. It owns the queue "com.tessarin.recording.camera-compositor", to which everything inside is
// confined, and the queue "com.tessarin.recording.system-audio-capture", which takes the computer's sound
// and is never kept waiting. Its methods are for the owner's one thread, which must be none of these nor the
// microphone's. Detach it before it is destroyed; a segment that was neither finished nor cancelled leaves
// what it has written readable.
class CameraCompositeRecorder {
 public:
  // Throws MediaUnavailable, and NativeServiceError: codecUnavailable, or when a track cannot be added,
  // recordingFailed, with a camera cameraUnavailable.
  CameraCompositeRecorder(const CameraCompositeSetup& setup, const QueueFactory& makeQueue);
  ~CameraCompositeRecorder();
  CameraCompositeRecorder(const CameraCompositeRecorder&) = delete;
  CameraCompositeRecorder& operator=(const CameraCompositeRecorder&) = delete;

  // From now on takes the stream's pictures and sound, and the microphone's samples unless that has ended.
  // Throws CaptureFailure; what was attached by then is for detach().
  void attach(RecordingStream& stream);
  // Stops all delivery; on return no sample is under way. Removes what attach() added, and nothing else.
  RecordingDetachTiming detach(RecordingStream& stream);

  // Blocks until the first frame is written. Throws NativeServiceError: the writer's first failure, or
  // recordingScreenStalled after the timeout.
  void waitUntilStarted(SerialQueue::Duration timeout);

  // Closes the file and blocks until it is whole and durable; writes the summary line. To be called once,
  // detached. The wait has no bound of its own: how long a disk takes for what was handed to it cannot be
  // told from here, and giving up would only move the wait to the destructor, which joins the file's thread.
  // Throws NativeServiceError: the first failure of the writer's life.
  void finish();
  // Drops the file.
  void cancel();

  // How long the segment has been recording: its written pictures, or the host clock since its epoch until
  // it was finished, whichever is longer. Zero before the first frame.
  MediaTime recordedDuration() const;
  // Host-clock nanoseconds of the first frame; nothing before it.
  std::optional<std::uint64_t> epochHostTimeNanoseconds() const;

 private:
  class SystemAudioOutput;

  void attachMicrophone();

  const HostClock& clock_;
  // Destroyed after the segment, so that they outlive its timers, and in this order, since the second hands
  // over to the first.
  std::unique_ptr<SerialQueue> queue_;
  std::unique_ptr<SerialQueue> systemAudioCaptureQueue_;
  std::shared_ptr<CameraCompositeSegment> segment_;
  std::shared_ptr<SystemAudioOutput> systemAudioOutput_; // null when not asked for
  MicrophoneCaptureSource* const microphone_;            // null without one
  // Owner's thread.
  bool isScreenAttached_ = false;
  bool isSystemAudioAttached_ = false;
  bool isMicrophoneAttached_ = false;
};

} // namespace tessarin
