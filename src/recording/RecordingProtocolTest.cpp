#include "recording/RecordingProtocol.hpp"

#include "support/FailureOf.hpp"
#include "support/RecordingRequests.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using Error = RecordingProtocolError;

const std::string id = sampleSessionID;

std::string controlLine(const std::string& command = "stop", const std::string& session = id) {
  return R"({"schemaVersion":2,"command":")" + command + R"(","sessionId":")" + session + R"("})";
}

std::optional<Error> errorOf(const std::string& line, std::optional<std::string_view> expected = id) {
  return failureOf<Error>([&] { RecordingControlCommand::decodeLine(line, expected); });
}

TEST(RecordingControlLine, DecodesEveryCommand) {
  using enum RecordingControlAction;
  for (const auto& [text, action] :
       {std::pair{"pause", pause}, {"resume", resume}, {"stop", stop}, {"cancel", cancel}})
    EXPECT_EQ(RecordingControlCommand::decodeLine(controlLine(text), id),
              (RecordingControlCommand{2, action, id}));
}

TEST(RecordingControlLine, IgnoresUnknownKeysAndBlanks) {
  EXPECT_EQ(
      errorOf(" {\"sessionId\" : \"" + id + "\", \"command\":\"pause\", \"schemaVersion\":2.0, \"x\":[1]}\r"),
      std::nullopt);
}

TEST(RecordingControlLine, TakesExactly65536BytesAndNoMore) {
  const std::string line = controlLine();
  const std::string largest = line + std::string(65536 - line.size(), ' ');
  ASSERT_EQ(largest.size(), 65536U);
  EXPECT_EQ(errorOf(largest), std::nullopt);
  EXPECT_EQ(errorOf(largest + ' '), Error::lineTooLarge);
  EXPECT_EQ(errorOf(std::string(65537, '{')), Error::lineTooLarge);
  EXPECT_EQ(errorOf(std::string(65536, '{')), Error::malformedJSON);
}

TEST(RecordingControlLine, RefusesWhatIsNoControlRecord) {
  for (const std::string line :
       {"", " ", "stop", "[]", "null", "{", "{}", R"({"schemaVersion":2,"command":"stop"})",
        R"({"schemaVersion":2,"sessionId":"x"})", R"({"command":"stop","sessionId":"x"})",
        R"({"schemaVersion":"2","command":"stop","sessionId":"x"})",
        R"({"schemaVersion":2.5,"command":"stop","sessionId":"x"})",
        R"({"schemaVersion":2,"command":"Stop","sessionId":"x"})",
        R"({"schemaVersion":2,"command":"stop","sessionId":7})",
        R"({"schemaVersion":2,"command":null,"sessionId":"x"})"})
    EXPECT_EQ(errorOf(line), Error::malformedJSON) << line;
  EXPECT_EQ(errorOf(controlLine() + controlLine()), Error::malformedJSON);
  EXPECT_EQ(errorOf("{\"schemaVersion\":2,\"command\":\"stop\",\"sessionId\":\"\xff\"}"),
            Error::malformedJSON);
}

TEST(RecordingControlLine, ChecksSchemaThenSessionThenItsBelonging) {
  EXPECT_EQ(errorOf(R"({"schemaVersion":1,"command":"stop","sessionId":"x"})"), Error::unsupportedSchema);
  EXPECT_EQ(errorOf(R"({"schemaVersion":3,"command":"stop","sessionId":")" + id + R"("})"),
            Error::unsupportedSchema);
  EXPECT_EQ(errorOf(controlLine("stop", "x")), Error::invalidSession);
  EXPECT_EQ(errorOf(controlLine("stop", "")), Error::invalidSession);
  EXPECT_EQ(errorOf(controlLine("stop", "00000000-0000-0000-0000-000000000000")), Error::staleSession);
  EXPECT_EQ(errorOf(controlLine("stop", "6F1C2D3E-4A5B-4C6D-8E7F-0A1B2C3D4E5F")), Error::staleSession);
  EXPECT_EQ(errorOf(controlLine("stop", "00000000-0000-0000-0000-000000000000"), std::nullopt), std::nullopt);
  EXPECT_EQ(errorOf(controlLine("stop", "x"), std::nullopt), Error::invalidSession);
}

TEST(RecordingControlLine, TellsEachErrorInItsOwnSentence) {
  EXPECT_EQ(messageOf(Error::lineTooLarge), "The recording control message is too large.");
  EXPECT_EQ(messageOf(Error::malformedJSON), "The recording control message is malformed.");
  EXPECT_EQ(messageOf(Error::unsupportedSchema), "The recording control message uses an unsupported schema.");
  EXPECT_EQ(messageOf(Error::invalidSession), "The recording control session is invalid.");
  EXPECT_EQ(messageOf(Error::staleSession), "The recording control message belongs to another session.");
}

// ---- Events

std::string lineOf(decltype(RecordingEvent::what) what) {
  return RecordingEvent{"S", std::move(what)}.encodedLine();
}

TEST(RecordingEventLine, TellsHealth) {
  RecordingHealth health;
  health.systemAudio = RecordingSourceHealth::quiet;
  health.storage = RecordingStorageHealth::low;
  EXPECT_EQ(lineOf(RecordingEvent::HealthChanged{health}),
            R"({"event":"healthChanged","health":{"screen":"healthy","storage":"low","systemAudio":"quiet"},)"
            R"("schemaVersion":2,"sessionId":"S"})"
            "\n");
}

TEST(RecordingEventLine, TellsTheState) {
  EXPECT_EQ(
      lineOf(RecordingEvent::StateChanged{RecordingPhase::recording, 0}),
      R"({"activeDurationMs":0,"event":"stateChanged","phase":"recording","schemaVersion":2,"sessionId":"S"})"
      "\n");
}

TEST(RecordingEventLine, TellsAFinishedSegmentWithPlainSlashes) {
  EXPECT_EQ(lineOf(RecordingEvent::SegmentFinalized{3, "/tmp/x/segments/segment-0003.mp4", 1500, 77, 4500}),
            R"({"activeDurationMs":4500,"durationMs":1500,"event":"segmentFinalized","index":3,)"
            R"("path":"/tmp/x/segments/segment-0003.mp4","schemaVersion":2,"sessionId":"S","sizeBytes":77})"
            "\n");
}

TEST(RecordingEventLine, TellsAFailure) {
  EXPECT_EQ(
      lineOf(RecordingEvent::Failed{{NativeErrorCode::recordingFailed, "It ended.", true}}),
      R"({"error":{"code":"recordingFailed","message":"It ended.","recoverable":true},"event":"failed",)"
      R"("schemaVersion":2,"sessionId":"S"})"
      "\n");
}

TEST(RecordingEventLine, TellsACancellation) {
  EXPECT_EQ(lineOf(RecordingEvent::Cancelled{}), R"({"event":"cancelled","schemaVersion":2,"sessionId":"S"})"
                                                 "\n");
}

TEST(RecordingEventLine, TellsEverythingOfACompletedRecording) {
  RecordingEvent::Completed completed;
  completed.clock = {18'446'744'073'709'551'615U, 5000, 4000};
  completed.tracks = {
      CaptureTrackPayload::screen({"/s/screen.mp4", 4000, 10}, 1920, 1080, RecordingCodec::h264),
      CaptureTrackPayload::interactionEvents({"/s/interaction-events.jsonl", 4000, 1})};
  completed.deliverables = {CaptureDeliverablePayload::shareVideo({"/s/recording.mp4", 4001, 11}, 1920, 1080,
                                                                  RecordingCodec::h264)};
  EXPECT_EQ(
      lineOf(completed),
      R"({"clock":{"captureDurationMs":5000,"epochHostTimeNs":18446744073709551615,"programDurationMs":4000},)"
      R"("deliverables":[{"codec":"h264","durationMs":4001,"heightPixels":1080,"id":"share-video",)"
      R"("kind":"shareVideo","path":"/s/recording.mp4","sizeBytes":11,"widthPixels":1920}],"event":"completed",)"
      R"("schemaVersion":2,"sessionId":"S","tracks":[{"codec":"h264","durationMs":4000,"heightPixels":1080,)"
      R"("id":"screen","kind":"screenVideo","mediaType":"video","path":"/s/screen.mp4","sizeBytes":10,)"
      R"("widthPixels":1920},{"durationMs":4000,"id":"interaction-events","kind":"interactionEvents",)"
      R"("mediaType":"data","path":"/s/interaction-events.jsonl","sizeBytes":1}]})"
      "\n");
}

TEST(RecordingEventLine, FailsOnTextThatIsNotUtf8) {
  EXPECT_THROW(lineOf(RecordingEvent::SegmentFinalized{0, "/tmp/\xff", 1, 1, 1}), json::EncodingFailure);
}

TEST(CaptureTracks, DescribeCameraAndSound) {
  EXPECT_EQ(json::encode(CaptureTrackPayload::camera({"/c", 1, 2}, 640, 480, RecordingCodec::hevc)),
            R"({"codec":"hevc","durationMs":1,"heightPixels":480,"id":"camera","kind":"cameraVideo",)"
            R"("mediaType":"video","path":"/c","sizeBytes":2,"widthPixels":640})");
  EXPECT_EQ(
      json::encode(CaptureTrackPayload::systemAudio({"/a", 1, 2})),
      R"({"channelCount":2,"durationMs":1,"id":"system-audio","kind":"systemAudio","mediaType":"audio",)"
      R"("path":"/a","sampleRateHz":48000,"sizeBytes":2})");
  EXPECT_EQ(
      json::encode(CaptureTrackPayload::microphone({"/m", 1, 2})),
      R"({"channelCount":2,"durationMs":1,"id":"microphone","kind":"microphoneAudio","mediaType":"audio",)"
      R"("path":"/m","sampleRateHz":48000,"sizeBytes":2})");
  EXPECT_EQ(json::nameOf(CaptureTrackKind::sensorData), "sensorData");
}

TEST(CaptureSessionClockJson, LeavesOutWhatIsUnknown) {
  EXPECT_EQ(json::encode(CaptureSessionClock{std::nullopt, std::nullopt, 12}), R"({"programDurationMs":12})");
}

// ---- Diagnostics

TEST(RecordingDiagnostics, TellStageAndCodeOfAFailure) {
  EXPECT_EQ(recordingFailedLine(RecordingStage::unexpectedStreamStop, NativeErrorCode::windowNotFound),
            "tessarin-native recording-failed stage=unexpected-stream-stop nativeCode=windowNotFound");
}

TEST(RecordingDiagnostics, NameEveryStage) {
  const std::vector<std::string_view> stages = {RecordingStage::prepareRequest,
                                                RecordingStage::shareableContent,
                                                RecordingStage::validateTarget,
                                                RecordingStage::cameraStart,
                                                RecordingStage::cameraOverlay,
                                                RecordingStage::microphoneStart,
                                                RecordingStage::excludeRecordingOverlays,
                                                RecordingStage::prepareOutput,
                                                RecordingStage::interactionRecorder,
                                                RecordingStage::prepareWriter,
                                                RecordingStage::startCapture,
                                                RecordingStage::recordingControl,
                                                RecordingStage::pauseFinalize,
                                                RecordingStage::resumeStart,
                                                RecordingStage::stopFinalize,
                                                RecordingStage::stopStream,
                                                RecordingStage::stopParallelMerge,
                                                RecordingStage::stopParallelValidate,
                                                RecordingStage::stopInteractions,
                                                RecordingStage::stopCompleteEvent,
                                                RecordingStage::cancel,
                                                RecordingStage::unexpectedStreamStop};
  EXPECT_EQ(stages, (std::vector<std::string_view>{"prepare-request",
                                                   "shareable-content",
                                                   "validate-target",
                                                   "camera-start",
                                                   "camera-overlay",
                                                   "microphone-start",
                                                   "exclude-recording-overlays",
                                                   "prepare-output",
                                                   "interaction-recorder",
                                                   "prepare-writer",
                                                   "start-capture",
                                                   "recording-control",
                                                   "pause-finalize",
                                                   "resume-start",
                                                   "stop-finalize",
                                                   "stop-stream",
                                                   "stop-parallel-merge",
                                                   "stop-parallel-validate",
                                                   "stop-interactions",
                                                   "stop-complete-event",
                                                   "cancel",
                                                   "unexpected-stream-stop"}));
}

TEST(RecordingDiagnostics, TellADeferredStreamStop) {
  EXPECT_EQ(recordingStreamStopSummaryLine(42, false),
            "tessarin-native recording-stream-stop-summary streamStopMs=42 streamStopFailed=0");
  EXPECT_EQ(recordingStreamStopSummaryLine(0, true),
            "tessarin-native recording-stream-stop-summary streamStopMs=0 streamStopFailed=1");
}

TEST(RecordingDiagnostics, TellWhatAStopTook) {
  RecordingStopDiagnostics stop;
  stop.startedAt = 1'000'000'000;
  stop.writerFinishMs = 1;
  stop.segmentValidationMs = 2;
  stop.streamStopMs = 3;
  stop.microphoneStopMs = 4;
  stop.outputRemovalMs = 5;
  stop.audioDrainMs = 6;
  stop.writerQueueDrainMs = 7;
  stop.mergeStartedAt = 1'008'999'999;
  stop.mergeEndedAt = 1'020'000'000;
  stop.validationEndedAt = 1'050'000'000;
  EXPECT_EQ(stop.summaryLine(1'100'000'000),
            "tessarin-native recording-stop-summary writerFinishMs=1 segmentValidationMs=2 streamStopMs=3 "
            "streamStopDeferred=0 microphoneStopMs=4 outputRemovalMs=5 audioDrainMs=6 writerQueueDrainMs=7 "
            "finalizeMs=8 trackMergeMs=11 validationMs=30 stopMergeMs=100");
}

TEST(RecordingDiagnostics, TellAStopThatTheStreamOutlasts) {
  EXPECT_EQ(RecordingStopDiagnostics{}.summaryLine(0),
            "tessarin-native recording-stop-summary writerFinishMs=0 segmentValidationMs=0 streamStopMs=0 "
            "streamStopDeferred=1 microphoneStopMs=0 outputRemovalMs=0 audioDrainMs=0 writerQueueDrainMs=0 "
            "finalizeMs=0 trackMergeMs=0 validationMs=0 stopMergeMs=0");
}

TEST(RecordingDiagnostics, CountElapsedTimeInWholeMillisecondsAndNeverBelowNone) {
  EXPECT_EQ(elapsedMilliseconds(0, 999'999), 0U);
  EXPECT_EQ(elapsedMilliseconds(0, 1'000'000), 1U);
  EXPECT_EQ(elapsedMilliseconds(5, 1'000'004), 0U);
  EXPECT_EQ(elapsedMilliseconds(2'000'000, 1'000'000), 0U);
}

TEST(RecordingDiagnostics, TellWhatASegmentWasLike) {
  EXPECT_EQ(RecordingSummary{}.line(),
            "tessarin-native recording-summary startupMs=0 videoDeliveryPermille=0 maxAudioQueueMs=0 "
            "systemAudioDriftMs=missing microphoneDriftMs=missing cameraDriftMs=missing screenFrames=0 "
            "cameraFrames=0");
  EXPECT_EQ((RecordingSummary{120, 998, 12, "3/20", "4/21", "5/22", 600, 599}.line()),
            "tessarin-native recording-summary startupMs=120 videoDeliveryPermille=998 maxAudioQueueMs=12 "
            "systemAudioDriftMs=3/20 microphoneDriftMs=4/21 cameraDriftMs=5/22 screenFrames=600 "
            "cameraFrames=599");
}

} // namespace
} // namespace tessarin
