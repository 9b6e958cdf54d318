#include "recording/CameraCompositeSegment.hpp"

#include "recording/RecordingFrameTimeline.hpp"
#include "recording/RecordingWriterPolicy.hpp"

#include <algorithm>
#include <utility>

namespace tessarin {

namespace {

VideoSettings videoSettings(const RecordingSettingsDTO& settings, std::int64_t width, std::int64_t height,
                            std::int64_t averageBitRate) {
  return {.codec = settings.effectiveCodec(),
          .width = width,
          .height = height,
          .averageBitRate = averageBitRate,
          .expectedFrameRate = settings.frameRate,
          .maximumKeyFrameInterval = std::max<std::int64_t>(settings.frameRate, 1),
          .allowFrameReordering = false,
          .expectsMediaDataInRealTime = true};
}

NativeServiceError defaultFailure(const CameraCompositeSetup& setup) {
  return setup.camera != nullptr ? serviceErrors::cameraUnavailable() : serviceErrors::recordingFailed();
}

RecordingHealthMonitor::Lane healthLane(RecordingAudioLane lane) {
  return lane == RecordingAudioLane::system ? RecordingHealthMonitor::Lane::systemAudio
                                            : RecordingHealthMonitor::Lane::microphone;
}

} // namespace

CameraCompositeSegment::CameraCompositeSegment(const CameraCompositeSetup& setup, SerialQueue& queue)
    : queue_(queue), clock_(setup.clock), diagnostics_(setup.diagnostics),
      wroteScreenFrame_(setup.wroteScreenFrame), receivedAudio_(setup.receivedAudio),
      failureHandler_(setup.failureHandler), signals_(std::make_shared<CameraCompositeSignals>()),
      failureError_(defaultFailure(setup)), configuredFrameRate_(setup.settings.frameRate),
      frameInterval_(1, static_cast<std::int32_t>(setup.settings.frameRate)),
      heartbeatInterval_(1'000'000'000 / std::max<std::int64_t>(setup.settings.frameRate, 1)),
      createdAtHostTime_(setup.clock.now()),
      writer_(
          setup.media.makeWriter({.path = setup.outputPath,
                                  .initialFragmentInterval = RecordingWriterPolicy::initialFragmentInterval,
                                  .fragmentInterval = RecordingWriterPolicy::fragmentInterval})) {
  const VideoSettings video = videoSettings(setup.settings, setup.plan.outputWidth, setup.plan.outputHeight,
                                            setup.plan.averageBitRate);
  if (!writer_->canApply(video))
    throw serviceErrors::codecUnavailable();
  videoInput_ = writer_->addVideoInput(video);
  if (videoInput_ == nullptr)
    throw NativeServiceError(failureError_);
  // The order of the tracks in the file, by which they are told apart later.
  if (setup.camera != nullptr)
    addCameraTrack(setup);
  if (setup.settings.systemAudio)
    systemAudio_.emplace(makeAudioLane(RecordingAudioLane::system));
  if (setup.settings.microphone)
    microphone_.emplace(makeAudioLane(RecordingAudioLane::microphone));
}

void CameraCompositeSegment::addCameraTrack(const CameraCompositeSetup& setup) {
  VideoInput* input = nullptr;
  if (const std::optional<SizeDTO>& size = setup.cameraPixelSize) {
    const std::int64_t bitRate = RecordingConfigurationBuilder::averageBitRate(
        setup.settings.effectiveCodec(), setup.settings.quality, size->width * size->height,
        std::max<std::int64_t>(setup.settings.frameRate, 1));
    VideoSettings video = videoSettings(setup.settings, size->width, size->height, bitRate);
    video.isMirrored = setup.settings.cameraOutputMirrored.value_or(false);
    input = writer_->addVideoInput(video);
    if (input == nullptr)
      throw NativeServiceError(failureError_);
  }
  cameraTrack_.emplace(*setup.camera, *writer_, input);
}

CameraCompositeAudioLane CameraCompositeSegment::makeAudioLane(RecordingAudioLane lane) {
  AudioInput* const input = writer_->addAudioInput(AudioSettings());
  if (input == nullptr)
    throw NativeServiceError(failureError_);
  return {lane, *input};
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
  ScreenPicture snapshot = gridTime.isNumeric() ? snapshotOf(sample) : nullptr;
  if (!snapshot)
    return fail("screen-snapshot");
  lastSourceVideoTime_ = gridTime;

  const ScreenPicture previous = std::exchange(lastScreenSnapshot_, snapshot);
  if (previous && !fillGap(previous, gridTime))
    return;
  // Of two pictures in one slot of the grid the first is written; the other is what a heartbeat repeats.
  if (clearsLastFrame(gridTime) && appendFrame(snapshot, gridTime))
    frameWasWritten(gridTime);
}

// An unchanged picture is handed over as the same object, which the coder repeats at next to no cost.
CameraCompositeSegment::ScreenPicture CameraCompositeSegment::snapshotOf(const ScreenSample& sample) {
  return sample.isUnchanged && lastScreenSnapshot_ ? lastScreenSnapshot_
                                                   : videoInput_->render(sample.image->view);
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
bool CameraCompositeSegment::fillGap(const ScreenPicture& previous, MediaTime gridTime) {
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
bool CameraCompositeSegment::appendFrame(const ScreenPicture& picture, MediaTime time) {
  PendingVideoFrame frame{picture, cameraTrack_ ? cameraTrack_->latestFrame() : std::nullopt, time};
  if (hasWriterFailed())
    return false;
  if (!isReadyForVideo()) {
    pendingVideoFrame_ = std::move(frame);
    observeVideoReadinessIfNeeded();
    return false;
  }
  pendingVideoFrame_.reset();
  return writeFrame(frame);
}

bool CameraCompositeSegment::isReadyForVideo() const {
  return videoInput_->isReadyForMoreMediaData() && (!cameraTrack_ || cameraTrack_->isReadyForMoreMediaData());
}

// A file that has failed meanwhile, the disk being full, is never ready again.
bool CameraCompositeSegment::hasWriterFailed() {
  if (writer_->status() != MediaWriterStatus::failed)
    return false;
  fail("append-screen");
  return true;
}

// Each of the screen's pictures has the camera's beside it. Where that fails, the screen's is in the file
// already.
bool CameraCompositeSegment::writeFrame(const PendingVideoFrame& frame) {
  if (!videoInput_->append(frame.picture, frame.presentationTime)) {
    fail("append-screen");
    return false;
  }
  ++appendedScreenFrameCount_;
  wroteScreenFrame_();
  if (!cameraTrack_)
    return true;
  const auto failure = cameraTrack_->append(frame.cameraPicture, frame.presentationTime);
  if (failure)
    fail(*failure);
  return !failure;
}

void CameraCompositeSegment::frameWasWritten(MediaTime time) {
  lastVideoTime_ = time;
  startHeartbeatIfNeeded();
  signals_->didStart();
}

void CameraCompositeSegment::observeVideoReadinessIfNeeded() {
  if (!readinessObservations_.empty())
    return;
  const auto drain = [&queue = queue_, weak = weak_from_this()] {
    // Only the queue may hold the segment: the last holder must not be a thread of the file writer.
    queue.async([weak] {
      if (const auto self = weak.lock())
        self->drainPendingVideo();
    });
  };
  readinessObservations_.push_back(videoInput_->observeReadiness(drain));
  if (cameraTrack_)
    readinessObservations_.push_back(cameraTrack_->observeReadiness(drain));
}

void CameraCompositeSegment::drainPendingVideo() {
  if (terminalError_ || endedAtHostTime_.isNumeric() || !pendingVideoFrame_ || hasWriterFailed() ||
      !isReadyForVideo())
    return;
  const PendingVideoFrame frame = *std::exchange(pendingVideoFrame_, std::nullopt);
  if (writeFrame(frame))
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

void CameraCompositeSegment::systemAudioSample(const AudioSample& sample) {
  if (!terminalError_)
    appendAudio(RecordingAudioLane::system, sample);
}

void CameraCompositeSegment::microphoneSample(const AudioSample& sample) {
  appendAudio(RecordingAudioLane::microphone, sample);
}

// A source counts as alive even while its samples are thrown away.
void CameraCompositeSegment::appendAudio(RecordingAudioLane which, const AudioSample& sample) {
  receivedAudio_(healthLane(which), sample.pcm);
  std::optional<CameraCompositeAudioLane>& lane = audioLane(which);
  if (!firstHostTime_.isNumeric() || !lane)
    return;
  if (const auto failure = lane->append(sample, firstHostTime_))
    fail(*failure);
  else if (lane->isWaiting())
    scheduleAudioDrain(*lane);
}

// While something waits its input is asked again and again; it tells of no readiness.
void CameraCompositeSegment::scheduleAudioDrain(CameraCompositeAudioLane& lane) {
  lane.scheduleDrain(queue_, [weak = weak_from_this(), which = lane.lane()] {
    const auto self = weak.lock();
    if (!self)
      return;
    CameraCompositeAudioLane& due = *self->audioLane(which);
    due.unscheduleDrain();
    self->drainAudio(due);
    if (due.isWaiting())
      self->scheduleAudioDrain(due);
  });
}

void CameraCompositeSegment::drainAudio(CameraCompositeAudioLane& lane) {
  if (const auto failure = lane.drain())
    fail(*failure);
}

std::optional<CameraCompositeAudioLane>& CameraCompositeSegment::audioLane(RecordingAudioLane lane) {
  return lane == RecordingAudioLane::system ? systemAudio_ : microphone_;
}

void CameraCompositeSegment::stopPictures() {
  heartbeatTimer_.reset();
  readinessObservations_.clear();
  pendingVideoFrame_.reset();
}

void CameraCompositeSegment::shutDown() {
  stopPictures();
  for (auto* const lane : {&systemAudio_, &microphone_})
    if (*lane)
      (*lane)->unscheduleDrain();
}

// The file is left as it is: what was coded of it is for its owner to keep or to drop.
void CameraCompositeSegment::fail(const CameraCompositeFailure& failure) {
  if (terminalError_)
    return;
  stopPictures();
  terminalError_ = failure.error.value_or(failureError_);
  reportFailure(failure.stage);
  failureHandler_();
  signals_->didFail(*terminalError_);
}

} // namespace tessarin
