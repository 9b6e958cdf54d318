// What a `stop` line asks of a session: the last segment, the merged files, their checks, and the one
// `completed` event. What is slow runs at the same time: the stream's own stop beside all of it, the merges
// beside each other, and so the checks.

#include "base/SafeFile.hpp"
#include "recording/RecordingDeliverables.hpp"
#include "recording/RecordingSession.hpp"

#include <algorithm>
#include <utility>

namespace tessarin {

namespace {

// 0 for a trace that is not there, and for one that cannot be looked at: the recording is whole without it.
std::int64_t traceSize(FileSystem& files, const std::string& path) {
  try {
    return regularFileSize(files, path).value_or(0);
  } catch (const FileFailure&) {
    return 0;
  }
}

} // namespace

void RecordingSession::stop() {
  RecordingStopDiagnostics diagnostics;
  diagnostics.startedAt = now();
  pauseTrace();
  parts_.overlays.pauseCamera();
  parts_.overlays.closeCamera();
  parts_.overlays.clearShortcuts();
  const std::optional<std::uint64_t> stopHostTimeNs = hostNanoseconds(parts_.environment.clock.now());
  if (!stopHostTimeNs || *stopHostTimeNs < epochHostTimeNs_)
    throw serviceErrors::recordingFailed();
  writeState(RecordingPhase::stopping,
             accumulatedDurationMs_ + (active_ ? active_->recordedMilliseconds() : 0));

  const bool isStreamStopDeferred = !active_;
  if (active_)
    finishLastSegment(diagnostics);
  else
    stopStreamOfPausedSession();
  parts_.overlays.finishCamera(accumulatedDurationMs_);

  RecordingDeliverables deliverables(parts_.environment, parts_.request.settings, parts_.store);
  diagnostics.mergeStartedAt = now();
  stage_ = RecordingStage::stopParallelMerge;
  deliverables.merge();

  diagnostics.mergeEndedAt = now();
  stage_ = RecordingStage::stopParallelValidate;
  deliverables.validate(MediaTime::milliseconds(accumulatedDurationMs_));

  diagnostics.validationEndedAt = now();
  if (!isStreamStopDeferred)
    diagnostics.streamStopMs = streamStop_->get();
  deliverables.requireMatchingLengths();

  stage_ = RecordingStage::stopInteractions;
  const std::optional<CaptureTrackPayload> trace = finishTrace(deliverables.programDurationMs());

  stage_ = RecordingStage::stopCompleteEvent;
  write(completedEvent(deliverables, trace, *stopHostTimeNs));
  parts_.environment.diagnostics(diagnostics.summaryLine(now()));
  if (isStreamStopDeferred)
    reportDeferredStreamStop();
}

// The writer lets go of the stream first; then the stream may stop while the writer closes its file.
void RecordingSession::finishLastSegment(RecordingStopDiagnostics& diagnostics) {
  stage_ = RecordingStage::stopFinalize;
  const RecordingDetachTiming detached = active_->writer->detach(*stream_);
  diagnostics.microphoneStopMs = detached.microphoneStopMs;
  diagnostics.outputRemovalMs = detached.outputRemovalMs;
  diagnostics.audioDrainMs = detached.audioDrainMs;
  diagnostics.writerQueueDrainMs = detached.writerQueueDrainMs;
  stopCaptureInBackground();
  const FinalizedRecordingSegment finalized = finalize(true);
  diagnostics.writerFinishMs = finalized.writerFinishMs;
  diagnostics.segmentValidationMs = finalized.segmentValidationMs;
}

void RecordingSession::stopStreamOfPausedSession() {
  stage_ = RecordingStage::stopStream;
  stopCaptureInBackground();
}

void RecordingSession::stopCaptureInBackground() {
  isCapturing_ = false;
  streamStop_.emplace(parts_.environment.makeQueue, "com.tessarin.recording.stream-stop", [this] {
    const std::uint64_t startedAt = now();
    stream_->stopCapture();
    return elapsedMilliseconds(startedAt, now());
  });
}

// Only a trace that holds something is a track.
std::optional<CaptureTrackPayload> RecordingSession::finishTrace(std::int64_t programDurationMs) {
  if (parts_.interactions)
    parts_.interactions->finish();
  const std::string& path = parts_.store.paths().interactionEvents;
  const std::int64_t size = traceSize(parts_.environment.files, path);
  if (size < 1)
    return std::nullopt;
  return CaptureTrackPayload::interactionEvents({path, programDurationMs, size});
}

RecordingEvent::Completed RecordingSession::completedEvent(const RecordingDeliverables& deliverables,
                                                           const std::optional<CaptureTrackPayload>& trace,
                                                           std::uint64_t stopHostTimeNs) const {
  const SizeDTO screenPixelSize{parts_.plan.outputWidth, parts_.plan.outputHeight};
  const std::int64_t programDurationMs = deliverables.programDurationMs();
  const auto captureDurationMs =
      static_cast<std::int64_t>(elapsedMilliseconds(epochHostTimeNs_, stopHostTimeNs));

  RecordingEvent::Completed completed;
  completed.clock = {.epochHostTimeNs = epochHostTimeNs_,
                     .captureDurationMs = std::max(captureDurationMs, programDurationMs),
                     .programDurationMs = programDurationMs};
  completed.tracks = deliverables.tracks(screenPixelSize, parts_.sources.cameraPixelSize());
  if (trace)
    completed.tracks.push_back(*trace);
  completed.deliverables.push_back(deliverables.shareVideo(screenPixelSize));
  return completed;
}

// The host has its answer already; how the stream stopped no longer changes it.
void RecordingSession::reportDeferredStreamStop() {
  std::uint64_t streamStopMs = 0;
  bool failed = false;
  try {
    streamStopMs = streamStop_->get();
  } catch (...) {
    failed = true;
  }
  parts_.environment.diagnostics(recordingStreamStopSummaryLine(streamStopMs, failed));
}

} // namespace tessarin
