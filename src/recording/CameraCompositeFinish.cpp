// How a segment ends: finished with its summary, cancelled, or failed with a line that tells where.

#include "recording/CameraCompositeSegment.hpp"
#include "recording/RecordingProtocol.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace tessarin {

namespace {

// How late a track began behind the pictures, and how far from their end it began for the last time.
std::string drift(MediaTime first, MediaTime last, std::int64_t videoMs) {
  if (!first.isNumeric())
    return "missing";
  return std::to_string(std::abs(first.wholeMilliseconds())) + "/" +
         std::to_string(std::abs(videoMs - last.wholeMilliseconds()));
}

} // namespace

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
  bool isSoundWaiting = false;
  for (auto* const lane : {&systemAudio_, &microphone_}) {
    if (!*lane)
      continue;
    drainAudio(**lane);
    isSoundWaiting = isSoundWaiting || (*lane)->isWaiting();
  }
  if (isSoundWaiting)
    fail("finish-audio-backpressure");
  if (terminalError_)
    throw NativeServiceError(*terminalError_);
  if (!firstHostTime_.isNumeric()) {
    writer_->cancelWriting();
    throw NativeServiceError(failureError_);
  }
  videoInput_->markAsFinished();
  if (cameraTrack_)
    cameraTrack_->markAsFinished();
  for (auto* const lane : {&systemAudio_, &microphone_})
    if (*lane)
      (*lane)->markAsFinished();
  writer_->finishWriting(std::move(completion));
}

void CameraCompositeSegment::reportFinished() const {
  if (writer_->status() != MediaWriterStatus::completed)
    throw NativeServiceError(failureError_);
  const std::int64_t videoMs = lastVideoTime_.wholeMilliseconds();
  const double expected =
      std::round(static_cast<double>(videoMs) / 1000 * static_cast<double>(configuredFrameRate_));
  const double delivered =
      std::round(static_cast<double>(appendedScreenFrameCount_) / std::max(expected, 1.0) * 1000);
  RecordingSummary summary;
  // A picture's time is the middle of the interval in which it was seen, which may lie before the segment.
  summary.startupMs = std::max((firstHostTime_ - createdAtHostTime_).wholeMilliseconds(), std::int64_t{0});
  summary.videoDeliveryPermille = static_cast<std::int64_t>(std::min(delivered, 1000.0));
  summary.screenFrames = appendedScreenFrameCount_;
  if (systemAudio_)
    summary.systemAudioDriftMs = drift(systemAudio_->firstTime(), systemAudio_->lastTime(), videoMs);
  if (microphone_)
    summary.microphoneDriftMs = drift(microphone_->firstTime(), microphone_->lastTime(), videoMs);
  for (const auto* const lane : {&systemAudio_, &microphone_})
    if (*lane)
      summary.maxAudioQueueMs = std::max(summary.maxAudioQueueMs, (*lane)->maximumQueueMs());
  if (cameraTrack_) {
    summary.cameraDriftMs = drift(cameraTrack_->firstTime(), cameraTrack_->lastTime(), videoMs);
    summary.cameraFrames = cameraTrack_->appendedFrameCount();
  }
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
