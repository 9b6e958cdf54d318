// What a `stop` line asks of a session: the last segment, the merged files, their checks, and the one
// `completed` event. What is slow runs at the same time: the stream's own stop beside all of it, the merges
// beside each other, and so the checks.

#include "base/SafeFile.hpp"
#include "recording/RecordingMediaValidator.hpp"
#include "recording/RecordingMerger.hpp"
#include "recording/RecordingSession.hpp"
#include "recording/RecordingTrackTimeline.hpp"

#include <algorithm>
#include <utility>

namespace tessarin {

struct RecordingSession::MergedFiles {
  ValidatedMedia screen;
  ValidatedMedia share;
};

void RecordingSession::stop() {
  RecordingStopDiagnostics diagnostics;
  diagnostics.startedAt = now();
  const std::optional<std::uint64_t> stopHostTimeNs = hostNanoseconds(environment_.clock.now());
  if (!stopHostTimeNs || *stopHostTimeNs < epochHostTimeNs_)
    throw serviceErrors::recordingFailed();
  writeState(RecordingPhase::stopping,
             accumulatedDurationMs_ + (active_ ? active_->recordedMilliseconds() : 0));

  const bool isStreamStopDeferred = !active_;
  if (active_)
    finishLastSegment(diagnostics);
  else
    stopStreamOfPausedSession();

  diagnostics.mergeStartedAt = now();
  stage_ = RecordingStage::stopParallelMerge;
  mergeSegments();

  diagnostics.mergeEndedAt = now();
  stage_ = RecordingStage::stopParallelValidate;
  const MergedFiles merged = validateMergedFiles();

  diagnostics.validationEndedAt = now();
  if (!isStreamStopDeferred)
    diagnostics.streamStopMs = streamStop_->get();
  if (!RecordingTrackTimeline::cameraMatches(merged.screen.durationMs, merged.share.durationMs,
                                             request_.settings.frameRate))
    throw serviceErrors::recordingFailed();

  stage_ = RecordingStage::stopInteractions;
  const std::optional<CaptureTrackPayload> trace = interactionTrack(merged.screen.durationMs);

  stage_ = RecordingStage::stopCompleteEvent;
  write(completedEvent(merged, trace, *stopHostTimeNs));
  environment_.diagnostics(diagnostics.summaryLine(now()));
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
  streamStop_.emplace(environment_.makeQueue, "com.tessarin.recording.stream-stop", [this] {
    const std::uint64_t startedAt = now();
    stream_->stopCapture();
    return elapsedMilliseconds(startedAt, now());
  });
}

void RecordingSession::mergeSegments() {
  std::vector<std::string> segments;
  for (const NativeRecordingSegment& segment : store_.segments())
    segments.push_back(segment.path);

  const RecordingSessionPaths& paths = store_.paths();
  const RecordingMerger merger(environment_.files);
  BackgroundTask<std::int64_t> screen(environment_.makeQueue, "com.tessarin.recording.merge-screen", [&] {
    return merger.mergeVideoTrack(segments, paths.screenOutput, 0);
  });
  BackgroundTask<std::int64_t> share(environment_.makeQueue, "com.tessarin.recording.merge-share",
                                     [&] { return merger.mergeShareVideo(segments, {}, paths.finalOutput); });
  screen.get();
  share.get();
}

RecordingSession::MergedFiles RecordingSession::validateMergedFiles() {
  const auto validate = [this](const std::string& path) {
    return RecordingMediaValidator::validateRecording(environment_.files, path,
                                                      MediaTime::milliseconds(accumulatedDurationMs_), 1, 0,
                                                      request_.settings.frameRate);
  };
  BackgroundTask<ValidatedMedia> screen(environment_.makeQueue, "com.tessarin.recording.validate-screen",
                                        [&] { return validate(store_.paths().screenOutput); });
  BackgroundTask<ValidatedMedia> share(environment_.makeQueue, "com.tessarin.recording.validate-share",
                                       [&] { return validate(store_.paths().finalOutput); });
  MergedFiles merged;
  merged.screen = screen.get();
  merged.share = share.get();
  return merged;
}

// Only a trace that holds something is a track.
std::optional<CaptureTrackPayload> RecordingSession::interactionTrack(std::int64_t programDurationMs) const {
  const std::string& path = store_.paths().interactionEvents;
  const std::optional<std::int64_t> size = regularFileSize(environment_.files, path);
  if (size.value_or(0) < 1)
    return std::nullopt;
  return CaptureTrackPayload::interactionEvents({path, programDurationMs, *size});
}

RecordingEvent::Completed RecordingSession::completedEvent(const MergedFiles& merged,
                                                           const std::optional<CaptureTrackPayload>& trace,
                                                           std::uint64_t stopHostTimeNs) const {
  const RecordingSessionPaths& paths = store_.paths();
  const RecordingCodec codec = request_.settings.effectiveCodec();
  const std::int64_t programDurationMs = merged.screen.durationMs;
  const auto captureDurationMs =
      static_cast<std::int64_t>(elapsedMilliseconds(epochHostTimeNs_, stopHostTimeNs));

  RecordingEvent::Completed completed;
  completed.clock = {.epochHostTimeNs = epochHostTimeNs_,
                     .captureDurationMs = std::max(captureDurationMs, programDurationMs),
                     .programDurationMs = programDurationMs};
  completed.tracks.push_back(
      CaptureTrackPayload::screen({paths.screenOutput, programDurationMs, merged.screen.sizeBytes},
                                  plan_.outputWidth, plan_.outputHeight, codec));
  if (trace)
    completed.tracks.push_back(*trace);
  completed.deliverables.push_back(CaptureDeliverablePayload::shareVideo(
      {paths.finalOutput, merged.share.durationMs, merged.share.sizeBytes}, plan_.outputWidth,
      plan_.outputHeight, codec));
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
  environment_.diagnostics(recordingStreamStopSummaryLine(streamStopMs, failed));
}

} // namespace tessarin
