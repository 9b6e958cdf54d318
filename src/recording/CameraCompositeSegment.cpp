#include "recording/CameraCompositeSegment.hpp"

#include "recording/RecordingFrameTimeline.hpp"
#include "recording/RecordingProtocol.hpp"
#include "recording/RecordingWriterPolicy.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessarin {

namespace {

VideoSettings screenSettings(const RecordingConfigurationPlan& plan, const RecordingSettingsDTO& settings) {
  return {.codec = settings.effectiveCodec(),
          .width = plan.outputWidth,
          .height = plan.outputHeight,
          .averageBitRate = plan.averageBitRate,
          .expectedFrameRate = settings.frameRate,
          .maximumKeyFrameInterval = std::max<std::int64_t>(settings.frameRate, 1),
          .allowFrameReordering = false,
          .expectsMediaDataInRealTime = true};
}

} // namespace

CameraCompositeSegment::CameraCompositeSegment(const CameraCompositeSetup& setup, SerialQueue& queue)
    : queue_(queue), clock_(setup.clock), diagnostics_(setup.diagnostics),
      wroteScreenFrame_(setup.wroteScreenFrame), failureHandler_(setup.failureHandler),
      signals_(std::make_shared<CameraCompositeSignals>()), failureError_(serviceErrors::recordingFailed()),
      configuredFrameRate_(setup.settings.frameRate),
      frameInterval_(1, static_cast<std::int32_t>(setup.settings.frameRate)),
      heartbeatInterval_(1'000'000'000 / std::max<std::int64_t>(setup.settings.frameRate, 1)),
      createdAtHostTime_(setup.clock.now()),
      writer_(
          setup.media.makeWriter({.path = setup.outputPath,
                                  .initialFragmentInterval = RecordingWriterPolicy::initialFragmentInterval,
                                  .fragmentInterval = RecordingWriterPolicy::fragmentInterval})) {
  const VideoSettings video = screenSettings(setup.plan, setup.settings);
  if (!writer_->canApply(video))
    throw serviceErrors::codecUnavailable();
  videoInput_ = writer_->addVideoInput(video);
  if (videoInput_ == nullptr)
    throw NativeServiceError(failureError_);
}

void CameraCompositeSegment::screenSample(const ScreenSample& sample) {
  if (!terminalError_)
    appendVideo(sample);
}

void CameraCompositeSegment::appendVideo(const ScreenSample& sample) {
  if (!sample.image)
    return;
  if (!sample.presentationTime.isNumeric())
    return fail("screen-timestamp");
  if (!firstHostTime_.isNumeric() && !beginSession(sample.presentationTime))
    return;

  const MediaTime gridTime =
      RecordingFrameTimeline::presentationTime(sample.presentationTime, firstHostTime_, frameInterval_);
  CodedPicture snapshot = gridTime.isNumeric() ? videoInput_->render(sample.image->view) : nullptr;
  if (!snapshot)
    return fail("screen-snapshot");
  lastSourceVideoTime_ = gridTime;

  const CodedPicture previous = std::exchange(lastScreenSnapshot_, snapshot);
  if (previous && !fillGap(previous, gridTime))
    return;
  // Of two pictures in one slot of the grid the first is written; the other is what a heartbeat repeats.
  if (clearsLastFrame(gridTime) && appendFrame(snapshot, gridTime))
    frameWasWritten(gridTime);
}

bool CameraCompositeSegment::beginSession(MediaTime sourceTime) {
  if (!writer_->startWriting()) {
    fail("start-writing");
    return false;
  }
  writer_->startSession(MediaTime::zero());
  firstHostTime_ = sourceTime;
  return true;
}

// Plugs the hole between the last written frame and the grid time. False when a copy was not taken.
bool CameraCompositeSegment::fillGap(const CodedPicture& previous, MediaTime gridTime) {
  if (!lastVideoTime_.isNumeric())
    return true;
  MediaTime time = lastVideoTime_ + frameInterval_;
  for (std::size_t i = 0; i < RecordingWriterPolicy::maximumFillerFrames && time < gridTime; ++i) {
    if (!appendFrame(previous, time))
      return false;
    lastVideoTime_ = time;
    time = time + frameInterval_;
  }
  return true;
}

bool CameraCompositeSegment::clearsLastFrame(MediaTime time) const {
  return !lastVideoTime_.isNumeric() || time >= lastVideoTime_ + frameInterval_;
}

// True when the file took the picture. One that the file is not ready for takes the pending slot.
bool CameraCompositeSegment::appendFrame(const CodedPicture& picture, MediaTime time) {
  if (hasWriterFailed())
    return false;
  if (!videoInput_->isReadyForMoreMediaData()) {
    pendingVideoFrame_ = PendingVideoFrame{picture, time};
    observeVideoReadinessIfNeeded();
    return false;
  }
  pendingVideoFrame_.reset();
  return writeFrame(picture, time);
}

// A file that has failed meanwhile, the disk being full, is never ready again.
bool CameraCompositeSegment::hasWriterFailed() {
  if (writer_->status() != MediaWriterStatus::failed)
    return false;
  fail("append-screen");
  return true;
}

bool CameraCompositeSegment::writeFrame(const CodedPicture& picture, MediaTime time) {
  if (!videoInput_->append(picture, time)) {
    fail("append-screen");
    return false;
  }
  ++appendedScreenFrameCount_;
  wroteScreenFrame_();
  return true;
}

void CameraCompositeSegment::frameWasWritten(MediaTime time) {
  lastVideoTime_ = time;
  startHeartbeatIfNeeded();
  signals_->didStart();
}

void CameraCompositeSegment::observeVideoReadinessIfNeeded() {
  if (!readinessObservations_.empty())
    return;
  readinessObservations_.push_back(videoInput_->observeReadiness([&queue = queue_, weak = weak_from_this()] {
    // Only the queue may hold the segment: the last holder must not be a thread of the file writer.
    queue.async([weak] {
      if (const auto self = weak.lock())
        self->drainPendingVideo();
    });
  }));
}

void CameraCompositeSegment::drainPendingVideo() {
  if (terminalError_ || endedAtHostTime_.isNumeric() || !pendingVideoFrame_ || hasWriterFailed() ||
      !videoInput_->isReadyForMoreMediaData())
    return;
  const PendingVideoFrame frame = *std::exchange(pendingVideoFrame_, std::nullopt);
  if (writeFrame(frame.picture, frame.presentationTime))
    frameWasWritten(frame.presentationTime);
}

void CameraCompositeSegment::startHeartbeatIfNeeded() {
  if (heartbeatTimer_)
    return;
  heartbeatTimer_ = queue_.every(heartbeatInterval_, heartbeatInterval_, [weak = weak_from_this()] {
    if (const auto self = weak.lock())
      self->appendHeartbeatFrame();
  });
}

// Keeps the screen track growing in step with the host clock while the stream is silent.
void CameraCompositeSegment::appendHeartbeatFrame() {
  if (terminalError_ || !lastScreenSnapshot_)
    return;
  const MediaTime now = clock_.now();
  if (!now.isNumeric() || now < firstHostTime_)
    return;
  const MediaTime time = now - firstHostTime_; // off the grid
  if (time < lastSourceVideoTime_ + frameInterval_ + frameInterval_)
    return;
  if (lastVideoTime_.isNumeric() && time < lastVideoTime_ + frameInterval_ + frameInterval_.scaledBy(1, 4))
    return;
  if (appendFrame(lastScreenSnapshot_, time))
    lastVideoTime_ = time;
}

void CameraCompositeSegment::shutDown() {
  heartbeatTimer_.reset();
  readinessObservations_.clear();
  pendingVideoFrame_.reset();
}

void CameraCompositeSegment::fail(std::string_view stage) {
  if (terminalError_)
    return;
  shutDown();
  terminalError_ = failureError_;
  reportFailure(stage);
  failureHandler_();
  signals_->didFail(*terminalError_);
}

void CameraCompositeSegment::reportFailure(std::string_view stage) const {
  MediaWriterError none;
  none.domain = "none";
  const MediaWriterError error = writer_->error().value_or(none);
  diagnostics_(DiagnosticsLine("tessarin-native recording-writer-failed")
                   .item("stage", stage)
                   .item("status", static_cast<int>(writer_->status()))
                   .item("domain", error.domain)
                   .item("code", error.code)
                   .item("underlyingDomain", error.underlyingDomain.value_or("none"))
                   .item("underlyingCode", error.underlyingCode)
                   .text());
}

void CameraCompositeSegment::finishWriting(std::function<void()> completion) {
  endedAtHostTime_ = clock_.now();
  shutDown();
  if (terminalError_)
    throw NativeServiceError(*terminalError_);
  if (!firstHostTime_.isNumeric()) {
    writer_->cancelWriting();
    throw NativeServiceError(failureError_);
  }
  videoInput_->markAsFinished();
  writer_->finishWriting(std::move(completion));
}

void CameraCompositeSegment::reportFinished() const {
  if (writer_->status() != MediaWriterStatus::completed)
    throw NativeServiceError(failureError_);
  const double videoSeconds = static_cast<double>(lastVideoTime_.wholeMilliseconds()) / 1000;
  const double expected = std::round(videoSeconds * static_cast<double>(configuredFrameRate_));
  const double delivered =
      std::round(static_cast<double>(appendedScreenFrameCount_) / std::max(expected, 1.0) * 1000);
  RecordingSummary summary;
  summary.startupMs = (firstHostTime_ - createdAtHostTime_).wholeMilliseconds();
  summary.videoDeliveryPermille = static_cast<std::int64_t>(std::min(delivered, 1000.0));
  summary.screenFrames = appendedScreenFrameCount_;
  diagnostics_(summary.line());
}

void CameraCompositeSegment::cancel() {
  endedAtHostTime_ = clock_.now();
  shutDown();
  writer_->cancelWriting();
  signals_->didFail(serviceErrors::recordingFailed());
}

MediaTime CameraCompositeSegment::recordedDuration() const {
  if (!firstHostTime_.isNumeric())
    return MediaTime::zero();
  const MediaTime end = endedAtHostTime_.isNumeric() ? endedAtHostTime_ : clock_.now();
  const MediaTime written = lastVideoTime_.isNumeric() ? lastVideoTime_ : MediaTime::zero();
  const MediaTime elapsed = end - firstHostTime_; // not numeric counts as less than any time
  return std::max(written, elapsed);
}

} // namespace tessarin
