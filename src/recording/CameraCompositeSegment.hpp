#pragma once

#include "base/Diagnostics.hpp"
#include "base/HostClock.hpp"
#include "base/MediaTime.hpp"
#include "base/SerialQueue.hpp"
#include "model/Errors.hpp"
#include "ports/Capture.hpp"
#include "ports/MediaWriting.hpp"
#include "recording/CameraCompositeAudioLane.hpp"
#include "recording/CameraCompositeCameraTrack.hpp"
#include "recording/CameraCompositeFailure.hpp"
#include "recording/CameraCompositeSignals.hpp"
#include "recording/CameraOverlaySource.hpp"
#include "recording/MicrophoneCaptureSource.hpp"
#include "recording/RecordingConfiguration.hpp"
#include "recording/RecordingHealthMonitor.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

// What the writer of one segment is made from. Everything referred to outlives the writer.
struct CameraCompositeSetup {
  std::string outputPath; // a file that does not exist
  const RecordingConfigurationPlan& plan;
  const RecordingSettingsDTO& settings;
  CameraOverlaySource* camera;            // null without one
  std::optional<SizeDTO> cameraPixelSize; // even pixels; absent without a camera
  MicrophoneCaptureSource* microphone;    // null without one
  MediaFileWriterFactory& media;
  const HostClock& clock;
  DiagnosticsSink diagnostics;
  std::function<void()> wroteScreenFrame; // on the writer's queue, for each picture that the file took
  // On the writer's queue, for each sample that arrives on a lane, kept or not.
  std::function<void(RecordingHealthMonitor::Lane, const PcmView&)> receivedAudio;
  std::function<void()> failureHandler; // on the writer's queue, once, at the first failure
};

// The inside of CameraCompositeRecorder: the file being written and where its tracks stand. Confined to the
// recorder's queue, the constructor apart; nothing in here locks or blocks. Pictures come in by
// screenSample(), are placed on the frame grid, and go out to the file's inputs, each with the camera's
// newest one beside it; while the stream is silent a timer repeats the last one. Sound goes through a lane
// for each source. Handlers that may outlive the segment hold it weakly.
class CameraCompositeSegment final : public ScreenSampleOutput,
                                     public std::enable_shared_from_this<CameraCompositeSegment> {
 public:
  // Any thread. The queue outlives the segment's timers and observations, that is, shutDown(). Throws
  // MediaUnavailable, and NativeServiceError when the codec or a track cannot be had.
  CameraCompositeSegment(const CameraCompositeSetup& setup, SerialQueue& queue);

  void screenSample(const ScreenSample& sample) override;
  void systemAudioSample(const AudioSample& sample);
  // Also behind a failure, of which nobody is told again.
  void microphoneSample(const AudioSample& sample);

  // Ends the heartbeat, the observations and the drains, and drops a picture that still waits. Idempotent.
  void shutDown();

  // Takes no more pictures, hands over the sound that waits, and begins to close the file; the completion
  // runs on a thread of the file writer. Throws the first failure, or the writer's own error when nothing
  // was ever written.
  void finishWriting(std::function<void()> completion);
  // Behind the completion: throws the writer's own error when the file did not come out whole, and else
  // writes the summary line.
  void reportFinished() const;
  // Drops the file, and tells a waiting owner that there will be no start.
  void cancel();

  MediaTime recordedDuration() const;
  MediaTime epoch() const { return firstHostTime_; }

  const std::shared_ptr<CameraCompositeSignals>& signals() const { return signals_; }

 private:
  using ScreenPicture = std::shared_ptr<const CodablePicture>;

  struct PendingVideoFrame {
    ScreenPicture picture;
    std::optional<Picture> cameraPicture; // the newest when the frame came; absent without one
    MediaTime presentationTime;
  };

  void addCameraTrack(const CameraCompositeSetup& setup);
  CameraCompositeAudioLane makeAudioLane(RecordingAudioLane lane);

  ScreenPicture snapshotOf(const ScreenSample& sample);
  bool beginSession(MediaTime sourceTime);
  void appendVideo(const ScreenSample& sample);
  bool fillGap(const ScreenPicture& previous, MediaTime gridTime);
  bool clearsLastFrame(MediaTime time) const;
  bool appendFrame(const ScreenPicture& picture, MediaTime time);
  bool hasWriterFailed();
  bool isReadyForVideo() const;
  bool writeFrame(const PendingVideoFrame& frame);
  void frameWasWritten(MediaTime time);
  void observeVideoReadinessIfNeeded();
  void drainPendingVideo();
  void startHeartbeatIfNeeded();
  void appendHeartbeatFrame();
  void stopPictures();

  void appendAudio(RecordingAudioLane lane, const AudioSample& sample);
  void scheduleAudioDrain(CameraCompositeAudioLane& lane);
  void drainAudio(CameraCompositeAudioLane& lane);
  std::optional<CameraCompositeAudioLane>& audioLane(RecordingAudioLane lane);

  void fail(const CameraCompositeFailure& failure);
  void fail(std::string_view stage) { fail({stage, std::nullopt}); }
  void reportFailure(std::string_view stage) const;

  // Set once by the constructor.
  SerialQueue& queue_;
  const HostClock& clock_;
  const DiagnosticsSink diagnostics_;
  const std::function<void()> wroteScreenFrame_;
  const std::function<void(RecordingHealthMonitor::Lane, const PcmView&)> receivedAudio_;
  const std::function<void()> failureHandler_;
  const std::shared_ptr<CameraCompositeSignals> signals_; // has its own lock
  const NativeServiceError failureError_;                 // of a failure that has no error of its own
  const std::int64_t configuredFrameRate_;
  const MediaTime frameInterval_;
  const SerialQueue::Duration heartbeatInterval_;
  MediaTime createdAtHostTime_;
  std::unique_ptr<MediaFileWriter> writer_; // its status may be read on any thread
  VideoInput* videoInput_ = nullptr;        // owned by the writer, as are the inputs of the next three
  std::optional<CameraCompositeCameraTrack> cameraTrack_; // absent without a camera
  std::optional<CameraCompositeAudioLane> systemAudio_;   // absent when not asked for, as is the next
  std::optional<CameraCompositeAudioLane> microphone_;

  // Where the screen track stands. Times are not numeric until the first frame.
  MediaTime firstHostTime_;       // the first frame's source time, the segment's epoch
  MediaTime lastVideoTime_;       // of the last frame that the file took, from the epoch
  MediaTime lastSourceVideoTime_; // grid time of the last picture that the stream delivered
  MediaTime endedAtHostTime_;     // set when it finishes or is cancelled
  ScreenPicture lastScreenSnapshot_;
  std::int64_t appendedScreenFrameCount_ = 0;

  // One slot: a newer picture replaces one that the file could not take yet.
  std::optional<PendingVideoFrame> pendingVideoFrame_;
  std::vector<std::unique_ptr<ReadinessObservation>> readinessObservations_;
  std::unique_ptr<QueueTimer> heartbeatTimer_;

  std::optional<NativeServiceError> terminalError_; // the first failure; no picture is appended behind it
};

} // namespace tessarin
