#include "recording/RecordingSession.hpp"

#include "base/SafeFile.hpp"
#include "recording/RecordingMediaValidator.hpp"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace tessarin {

namespace {

// How far a segment's file may differ in length from what its writer says it has written.
constexpr std::int64_t segmentToleranceMs = 250;

std::int64_t checkedSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum))
    throw serviceErrors::recordingFailed();
  return sum;
}

} // namespace

std::int64_t ActiveRecordingSegment::recordedMilliseconds() const {
  return std::max<std::int64_t>(writer->recordedDuration().wholeMilliseconds(), 0);
}

RecordingSession::RecordingSession(RecordingSessionParts parts, std::unique_ptr<RecordingStream> stream,
                                   std::string_view& stage)
    : parts_(std::move(parts)), stage_(stage), stream_(std::move(stream)) {}

RecordingSession::~RecordingSession() {
  if (active_) {
    active_->writer->detach(*stream_);
    active_->writer->cancel();
  }
  stopCaptureQuietly();
  parts_.health.stop();
}

void RecordingSession::start() {
  stage_ = RecordingStage::prepareWriter;
  active_ = makeSegment();

  stage_ = RecordingStage::startCapture;
  active_->writer->attach(*stream_);
  stream_->startCapture();
  isCapturing_ = true;
  active_->writer->waitUntilStarted(startTimeout);
  const std::optional<std::uint64_t> epoch = active_->writer->epochHostTimeNanoseconds();
  if (!epoch)
    throw serviceErrors::recordingFailed();
  epochHostTimeNs_ = *epoch;
  startTrace(*epoch);
  parts_.overlays.startSegment(accumulatedDurationMs_, *epoch);

  writeState(RecordingPhase::recording, 0);
  startHealth();
}

void RecordingSession::serveControlLines(ControlInput& input) {
  for (;;) {
    stage_ = RecordingStage::recordingControl;
    const std::optional<std::string> line = input.nextLine();
    if (!line) {
      stage_ = RecordingStage::unexpectedStreamStop;
      throw serviceErrors::recordingFailed();
    }
    const auto command = RecordingControlCommand::decodeLine(*line, parts_.request.sessionID).command;
    if (command == RecordingControlAction::resume && active_) {
      writeState(RecordingPhase::recording, accumulatedDurationMs_);
      continue;
    }
    parts_.health.stop();
    switch (command) {
    case RecordingControlAction::pause:
      pause();
      break;
    case RecordingControlAction::resume:
      resume();
      break;
    case RecordingControlAction::stop:
      return stop();
    case RecordingControlAction::cancel:
      return cancel();
    }
  }
}

ActiveRecordingSegment RecordingSession::makeSegment() {
  ActiveRecordingSegment segment;
  segment.pending = parts_.store.allocateNextSegment();
  segment.expectedVideoTrackCount = parts_.sources.camera() != nullptr ? 2 : 1;
  segment.expectedAudioTrackCount = RecordingAudioTracks(parts_.request.settings).all.size();
  segment.frameRate = parts_.request.settings.frameRate;
  segment.writer = std::make_unique<CameraCompositeRecorder>(
      CameraCompositeSetup{.outputPath = segment.pending.path,
                           .plan = parts_.plan,
                           .settings = parts_.request.settings,
                           .camera = parts_.sources.camera(),
                           .cameraPixelSize = parts_.sources.cameraPixelSize(),
                           .microphone = parts_.sources.microphone(),
                           .media = parts_.environment.media,
                           .clock = parts_.environment.clock,
                           .diagnostics = parts_.environment.diagnostics,
                           .wroteScreenFrame = [&health = parts_.health] { health.wroteScreenFrame(); },
                           .receivedAudio = [&health = parts_.health](
                                                RecordingHealthMonitor::Lane lane,
                                                const PcmView& audio) { health.receivedAudio(lane, audio); },
                           .failureHandler = [stop = parts_.stopDelegate] { stop->stopReading(); }},
      parts_.environment.makeQueue);
  return segment;
}

void RecordingSession::startTrace(std::uint64_t epochHostTimeNs) {
  if (parts_.interactions)
    parts_.interactions->startSegment(accumulatedDurationMs_, epochHostTimeNs);
}

void RecordingSession::pauseTrace() {
  if (parts_.interactions)
    parts_.interactions->pauseSegment();
}

// The stream goes on while paused; nobody takes its pictures.
void RecordingSession::pause() {
  stage_ = RecordingStage::pauseFinalize;
  pauseTrace();
  parts_.overlays.pauseCamera();
  if (active_) {
    writeState(RecordingPhase::pausing, accumulatedDurationMs_);
    finalize(false);
    parts_.overlays.finishCamera(accumulatedDurationMs_);
  }
  writeState(RecordingPhase::paused, accumulatedDurationMs_);
}

void RecordingSession::resume() {
  stage_ = RecordingStage::resumeStart;
  writeState(RecordingPhase::resuming, accumulatedDurationMs_);
  active_ = makeSegment();
  active_->writer->attach(*stream_);
  active_->writer->waitUntilStarted(startTimeout);
  startHealth();
  if (const std::optional<std::uint64_t> epoch = active_->writer->epochHostTimeNanoseconds()) {
    parts_.overlays.startSegment(accumulatedDurationMs_, *epoch);
    startTrace(*epoch);
  }
  writeState(RecordingPhase::recording, accumulatedDurationMs_);
}

void RecordingSession::cancel() {
  stage_ = RecordingStage::cancel;
  pauseTrace();
  parts_.overlays.clearShortcuts();
  std::optional<PendingRecordingSegment> cancelled;
  if (active_) {
    active_->writer->detach(*stream_);
    active_->writer->cancel();
    cancelled = active_->pending;
    active_.reset();
  }
  stopCapture();
  if (cancelled)
    removeQuietly(parts_.environment.files, cancelled->path);
  parts_.store.discardAll();
  write(RecordingEvent::Cancelled{});
}

// Closes the active segment's file, checks it and enters it into the manifest. Whatever happens, the
// segment is active no longer.
FinalizedRecordingSegment RecordingSession::finalize(bool outputAlreadyDetached) {
  const ActiveRecordingSegment segment = *std::exchange(active_, std::nullopt);
  if (!outputAlreadyDetached)
    segment.writer->detach(*stream_);

  const std::uint64_t startedAt = now();
  segment.writer->finish();
  const std::uint64_t finishedAt = now();

  const ValidatedMedia media = RecordingMediaValidator::validateRecording(
      parts_.environment.files, segment.pending.path, segment.writer->recordedDuration(),
      segment.expectedVideoTrackCount, segment.expectedAudioTrackCount, segment.frameRate);
  const std::int64_t recordedMs = segment.recordedMilliseconds();
  if (media.durationMs < 1 || recordedMs < 1 || std::abs(media.durationMs - recordedMs) > segmentToleranceMs)
    throw serviceErrors::recordingFailed();

  parts_.store.finalize(segment.pending, media.durationMs, media.sizeBytes);
  const std::int64_t accumulated = checkedSum(accumulatedDurationMs_, media.durationMs);
  write(RecordingEvent::SegmentFinalized{.index = segment.pending.index,
                                         .path = segment.pending.path,
                                         .durationMs = media.durationMs,
                                         .sizeBytes = media.sizeBytes,
                                         .activeDurationMs = accumulated});
  accumulatedDurationMs_ = accumulated;
  return {.durationMs = media.durationMs,
          .writerFinishMs = elapsedMilliseconds(startedAt, finishedAt),
          .segmentValidationMs = elapsedMilliseconds(finishedAt, now())};
}

void RecordingSession::salvage() noexcept {
  parts_.health.stop();
  // The failure on its way out is the one to report; earlier segments are in the manifest.
  const auto quietly = [](const auto& step) {
    try {
      step();
    } catch (...) {
    }
  };
  quietly([&] { pauseTrace(); });
  quietly([&] { parts_.overlays.clearShortcuts(); });
  quietly([&] { parts_.overlays.pauseCamera(); });
  if (active_)
    quietly([&] { finalize(false); });
  stopCaptureQuietly();
}

void RecordingSession::stopCapture() {
  isCapturing_ = false;
  stream_->stopCapture();
}

void RecordingSession::stopCaptureQuietly() noexcept {
  streamStop_.reset();
  if (!isCapturing_)
    return;
  try {
    stopCapture();
  } catch (...) {
    // A stream that has ended by itself refuses to be stopped; it has stopped all the same.
  }
}

void RecordingSession::startHealth() {
  RecordingHealthMonitor::LatestCameraFrame latestCameraFrame;
  if (const CameraOverlaySource* const camera = parts_.sources.camera())
    latestCameraFrame = [camera] { return camera->latestFrameReceivedAt(); };
  parts_.health.start(parts_.request.settings, std::move(latestCameraFrame), parts_.request.outputDirectory,
                      parts_.request.sessionID, parts_.events,
                      [stop = parts_.stopDelegate] { stop->stopReading(); });
}

void RecordingSession::writeState(RecordingPhase phase, std::int64_t activeDurationMs) {
  write(RecordingEvent::StateChanged{phase, activeDurationMs});
}

void RecordingSession::write(decltype(RecordingEvent::what) what) {
  parts_.events.write({parts_.request.sessionID, std::move(what)});
}

std::uint64_t RecordingSession::now() const {
  return hostNanoseconds(parts_.environment.clock.now()).value_or(0);
}

} // namespace tessarin
