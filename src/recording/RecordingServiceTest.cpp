// Running sessions: what a host sees of each order of control lines, of each way in which a session can
// end by itself, and what is on disk behind it.

#include "support/RecordingRig.hpp"

#include "recording/RecordingSegmentStore.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Rig = testing::RecordingRig;

std::string state(const std::string& phase, int activeDurationMs) {
  return R"({"activeDurationMs":)" + std::to_string(activeDurationMs) +
         R"(,"event":"stateChanged","phase":")" + phase + R"(","schemaVersion":2,"sessionId":"ID"})";
}

std::string segmentFinalized(int index, int durationMs, int activeDurationMs) {
  return R"({"activeDurationMs":)" + std::to_string(activeDurationMs) + R"(,"durationMs":)" +
         std::to_string(durationMs) + R"(,"event":"segmentFinalized","index":)" + std::to_string(index) +
         R"(,"path":"DIR/segments/segment-000)" + std::to_string(index) +
         R"(.mp4","schemaVersion":2,"sessionId":"ID","sizeBytes":SIZE})";
}

std::string completed(int captureDurationMs, int programDurationMs) {
  const std::string duration = std::to_string(programDurationMs);
  return R"({"clock":{"captureDurationMs":)" + std::to_string(captureDurationMs) +
         R"(,"epochHostTimeNs":10000000000,"programDurationMs":)" + duration +
         R"(},"deliverables":[{"codec":"h264","durationMs":)" + duration +
         R"(,"heightPixels":1080,"id":"share-video","kind":"shareVideo","path":"DIR/recording.mp4",)" +
         R"("sizeBytes":SIZE,"widthPixels":1920}],"event":"completed","schemaVersion":2,"sessionId":"ID",)" +
         R"("tracks":[{"codec":"h264","durationMs":)" + duration +
         R"(,"heightPixels":1080,"id":"screen","kind":"screenVideo","mediaType":"video",)" +
         R"("path":"DIR/screen.mp4","sizeBytes":SIZE,"widthPixels":1920}]})";
}

std::string failed(const std::string& code, const std::string& message) {
  return R"({"error":{"code":")" + code + R"(","message":")" + message +
         R"(","recoverable":true},"event":"failed","schemaVersion":2,"sessionId":"ID"})";
}

const std::string cancelled = R"({"event":"cancelled","schemaVersion":2,"sessionId":"ID"})";
const std::string recordingFailed = failed("recordingFailed", "The screen recording could not be completed.");

std::string failedLine(const std::string& stage, const std::string& code = "recordingFailed") {
  return "tessarin-native recording-failed stage=" + stage + " nativeCode=" + code;
}

std::vector<NativeRecordingSegment> manifestSegments(Rig& rig) {
  return json::decode<NativeRecordingManifest>(
             rig.directory.read(testing::sampleSessionID + "/native-manifest.json"))
      .segments;
}

// Nothing of a session runs on once it has ended.
void expectQuiet(Rig& rig) {
  EXPECT_EQ(rig.scheduler.timerCount(), 0u);
  EXPECT_EQ(rig.scheduler.pendingCount(), 0u);
  EXPECT_EQ(rig.stream().outputCount(), 0u);
  EXPECT_THAT(rig.stream().calls, ::testing::Contains("stopCapture").Times(1));
}

// ---- Stop

TEST(RecordingService, AStopAnswersWithTheFinishedRecording) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000),
                                        segmentFinalized(0, 1033, 1033), completed(1033, 1033)));
  EXPECT_THAT(rig.entries(), ElementsAre("native-manifest.json", "recording.mp4", "screen.mp4", "segments/",
                                         "segments/segment-0000.mp4"));
  EXPECT_THAT(rig.stream().calls,
              ElementsAre("addScreenOutput", "startCapture", "removeScreenOutput", "stopCapture"));
  expectQuiet(rig);
  const std::int64_t segmentBytes = rig.files.info(rig.path("segments/segment-0000.mp4"))->sizeBytes;
  EXPECT_EQ(manifestSegments(rig), (std::vector<NativeRecordingSegment>{
                                       {0, rig.path("segments/segment-0000.mp4"), 1033, segmentBytes}}));
  EXPECT_THAT(rig.rawEvent(2), HasSubstr("\"sizeBytes\":" + std::to_string(segmentBytes) + "}\n"));
}

TEST(RecordingService, AStopTellsHowLongItTook) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.stream().onStop = [&] { rig.clock.advance(40ms); };
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_THAT(
      rig.diagnostics(),
      ElementsAre("tessarin-native recording-summary startupMs=0 videoDeliveryPermille=1000 "
                  "maxAudioQueueMs=0 systemAudioDriftMs=missing microphoneDriftMs=missing "
                  "cameraDriftMs=missing screenFrames=31 cameraFrames=0",
                  "tessarin-native recording-stop-summary writerFinishMs=0 segmentValidationMs=0 "
                  "streamStopMs=40 streamStopDeferred=0 microphoneStopMs=0 outputRemovalMs=0 audioDrainMs=0 "
                  "writerQueueDrainMs=0 finalizeMs=0 trackMergeMs=0 validationMs=0 stopMergeMs=40"));
}

TEST(RecordingService, AStopRightAwayKeepsTheOneFrame) {
  Rig rig;
  rig.then([&] {
    rig.clock.advance(20ms);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 20),
                                        segmentFinalized(0, 33, 33), completed(33, 33)));
}

TEST(RecordingService, TheSessionRunsOnRealThreadsToo) {
  Rig rig;
  rig.makeQueue = makeThreadQueue;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("resume");
  rig.then([&] {
    rig.record(500ms);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events().back(), HasSubstr("\"completed\""));
  EXPECT_EQ(manifestSegments(rig).size(), 2u);
}

TEST(RecordingService, CaptureTimeRunsThroughPausesAndProgramTimeDoesNot) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.clock.advance(1h);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), completed(3'601'000, 1033));
}

TEST(RecordingService, ATraceThatHoldsSomethingIsATrack) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.directory.write(testing::sampleSessionID + "/interaction-events.jsonl", "{}\n");
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.lastEvent(),
              HasSubstr(R"(,{"durationMs":1033,"id":"interaction-events","kind":"interactionEvents",)"
                        R"("mediaType":"data","path":"DIR/interaction-events.jsonl","sizeBytes":SIZE}])"));
}

TEST(RecordingService, AnEmptyTraceIsNoTrack) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.directory.write(testing::sampleSessionID + "/interaction-events.jsonl", "");
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), completed(1033, 1033));
}

TEST(RecordingService, AClockBeforeTheEpochFailsTheStop) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.clock.set(9s);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("recording-control"));
}

// ---- Pause and resume

TEST(RecordingService, APauseClosesTheSegmentAndAStopBehindItHasNoneOfItsOwn) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("stop");
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                          state("paused", 1033), state("stopping", 1033), completed(1033, 1033)));
  EXPECT_THAT(rig.stream().calls,
              ElementsAre("addScreenOutput", "startCapture", "removeScreenOutput", "stopCapture"));
  EXPECT_THAT(rig.diagnostics(),
              ElementsAre(HasSubstr("recording-summary"),
                          AllOf(HasSubstr("recording-stop-summary"),
                                HasSubstr("streamStopMs=0 streamStopDeferred=1")),
                          "tessarin-native recording-stream-stop-summary streamStopMs=0 streamStopFailed=0"));
  expectQuiet(rig);
}

TEST(RecordingService, ADeferredStreamStopThatFailsChangesNothing) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.stream().refusesToStop = true;
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), completed(1033, 1033));
  EXPECT_EQ(rig.lastDiagnostics(),
            "tessarin-native recording-stream-stop-summary streamStopMs=0 streamStopFailed=1");
}

TEST(RecordingService, AStreamStopThatIsWaitedForFailsTheSession) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.stream().refusesToStop = true;
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000),
                                        segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-validate"));
  expectQuiet(rig);
}

TEST(RecordingService, PausingTwiceSaysPausedTwice) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("pause");
  rig.thenSend("cancel");
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                          state("paused", 1033), state("paused", 1033), cancelled));
  EXPECT_THAT(rig.entries(), ElementsAre("segments/")) << "a cancel while paused discards all the same";
  expectQuiet(rig);
}

TEST(RecordingService, ResumingWhileRecordingSaysRecordingAgainWithoutTheRunningSegment) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("resume");
  });
  rig.thenSend("stop");
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("recording", 0), state("stopping", 1000),
                                        segmentFinalized(0, 1033, 1033), completed(1033, 1033)));
  EXPECT_EQ(rig.media.files.size(), 1u);
}

TEST(RecordingService, AResumedSessionIsAChainOfSegments) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.clock.advance(10min);
    rig.send("resume");
  });
  rig.then([&] {
    rig.record(500ms);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                          state("paused", 1033), state("resuming", 1033), state("recording", 1033),
                          state("stopping", 1533), segmentFinalized(1, 533, 1566),
                          completed(601'500, 1567))); // the parts are rounded, and so is the whole
  EXPECT_THAT(rig.stream().calls, ElementsAre("addScreenOutput", "startCapture", "removeScreenOutput",
                                              "addScreenOutput", "removeScreenOutput", "stopCapture"));
  EXPECT_EQ(manifestSegments(rig).size(), 2u);
  expectQuiet(rig);
}

TEST(RecordingService, PicturesThatComeDuringAPauseAreDropped) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.record(2s);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.segment(0).appended.size(), 31u);
}

TEST(RecordingService, AResumeThatFailsKeepsTheFinishedSegments) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.media.isUnavailable = true;
    rig.send("resume");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(
      rig.events(),
      ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                  state("paused", 1033), state("resuming", 1033),
                  failed("codecUnavailable", "The selected recording codec is unavailable on this Mac.")));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("resume-start", "codecUnavailable"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

TEST(RecordingService, AResumeWithoutAPictureInTimeFails) {
  Rig rig;
  bool isResumed = false;
  rig.makeQueue = [&](const std::string& label) -> std::unique_ptr<SerialQueue> {
    std::unique_ptr<SerialQueue> queue = rig.scheduler.makeQueue(label);
    return isResumed ? std::make_unique<testing::ImpatientQueue>(std::move(queue)) : std::move(queue);
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    isResumed = true;
    rig.stream().presentPicture.reset();
    rig.send("resume");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(),
            failed("recordingScreenStalled",
                   "Screen frames stopped being written. Recording sources were retained for recovery."));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("resume-start", "recordingScreenStalled"));
  EXPECT_THAT(rig.segment(1).calls, ElementsAre("cancelWriting"));
  expectQuiet(rig);
}

struct Lengthening {
  std::int64_t milliseconds;
  bool passes;
};

class RecordingServiceLengthTest : public ::testing::TestWithParam<Lengthening> {};

TEST_P(RecordingServiceLengthTest, AFileMayBeAtMostAQuarterSecondOffWhatWasWritten) {
  Rig rig;
  rig.lengthening = MediaTime::milliseconds(GetParam().milliseconds) - MediaTime(1, 30);
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("cancel");
  EXPECT_EQ(rig.run(), GetParam().passes ? 0 : 1);
  EXPECT_EQ(rig.lastEvent(), GetParam().passes ? cancelled : recordingFailed);
  if (!GetParam().passes) {
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("pause-finalize"));
    EXPECT_FALSE(exists(rig.files, rig.path("native-manifest.json")));
    EXPECT_TRUE(exists(rig.files, rig.path("segments/segment-0000.mp4"))) << "kept for a recovery";
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, RecordingServiceLengthTest,
                         ::testing::Values(Lengthening{1, true}, Lengthening{250, true},
                                           Lengthening{251, false}));

TEST(RecordingService, APauseWithoutAWholeMillisecondFails) {
  Rig rig;
  rig.then([&] { rig.send("pause"); }); // the clock has not moved since the first picture
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("pause-finalize"));
}

// ---- Cancel

TEST(RecordingService, ACancelLeavesOnlyTheDirectories) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), cancelled));
  EXPECT_THAT(rig.entries(), ElementsAre("segments/"));
  EXPECT_THAT(rig.segment(0).calls, ElementsAre("startWriting", "startSession 0", "cancelWriting"));
  EXPECT_THAT(rig.diagnostics(), IsEmpty());
  expectQuiet(rig);
}

TEST(RecordingService, ACancelRemovesAFileThatTheWriterLeft) {
  Rig rig;
  rig.media.prepare = [&](ScriptedMediaFile& file, std::size_t) {
    rig.produceMovie(file);
    file.onCancel = nullptr;
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.entries(), ElementsAre("segments/"));
}

TEST(RecordingService, ACancelRemovesEarlierSegmentsToo) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("resume");
  rig.then([&] {
    rig.record(1s);
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), cancelled);
  EXPECT_THAT(rig.entries(), ElementsAre("segments/"));
}

TEST(RecordingService, ACancelWhoseStreamCannotBeStoppedFails) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.stream().refusesToStop = true;
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("cancel"));
  expectQuiet(rig);
}

// ---- Lines that end the session

struct BadLine {
  const char* name;
  std::string line;
};

class RecordingServiceBadLineTest : public ::testing::TestWithParam<BadLine> {};

TEST_P(RecordingServiceBadLineTest, EndsTheSessionAndKeepsTheSegment) {
  Rig rig;
  std::thread writing; // the line may be longer than what a pipe holds
  rig.then([&] {
    rig.record(1s);
    writing = std::thread([&] { rig.sendLine(GetParam().line); });
  });
  EXPECT_EQ(rig.run(), 1);
  writing.join();
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("recording-control"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, RecordingServiceBadLineTest,
    ::testing::Values(
        BadLine{"tooLarge", std::string(65'537, ' ')}, BadLine{"malformed", "stop"},
        BadLine{"schema", R"({"schemaVersion":1,"command":"stop","sessionId":"x"})"},
        BadLine{"session", R"({"schemaVersion":2,"command":"stop","sessionId":"x"})"},
        BadLine{
            "stale",
            R"({"schemaVersion":2,"command":"stop","sessionId":"6F1C2D3E-4A5B-4C6D-8E7F-0A1B2C3D4E5F"})"}),
    [](const auto& row) { return row.param.name; });

TEST(RecordingService, ABadLineWhilePausedIsTheLoopsFailureToo) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] { rig.sendLine("?"); });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("recording-control"));
  expectQuiet(rig);
}

TEST(RecordingService, TheEndOfInputIsAFailureThatKeepsTheSegment) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.endInput();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  EXPECT_THAT(rig.entries(), ElementsAre("native-manifest.json", "segments/", "segments/segment-0000.mp4"));
  expectQuiet(rig);
}

TEST(RecordingService, LinesThatComeDuringStartUpAreReadInOrderBehindIt) {
  Rig rig;
  rig.streams.prepare = [&](ScriptedScreenStream& stream) {
    stream.presentPicture = 1;
    rig.send("resume");
    rig.send("cancel");
  };
  rig.then([] {});
  rig.then([] {});
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("recording", 0), cancelled));
}

// ---- Sessions that end by themselves

TEST(RecordingService, AStreamThatEndsADisplayRecordingIsAFailure) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.stream().end();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

TEST(RecordingService, AStreamThatEndsAWindowRecordingTellsThatTheWindowHasClosed) {
  Rig rig;
  rig.request = testing::sampleRequest(CaptureKind::window);
  rig.request.outputDirectory = rig.directory / testing::sampleSessionID;
  rig.then([&] {
    rig.record(1s);
    rig.stream().end();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(
      rig.events(),
      ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033),
                  failed("windowNotFound",
                         "The selected window closed during recording. Finalized segments were preserved.")));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "windowNotFound"));
}

TEST(RecordingService, AClosedInputOfAWindowRecordingIsNotTheWindowsFault) {
  Rig rig;
  rig.request = testing::sampleRequest(CaptureKind::window);
  rig.request.outputDirectory = rig.directory / testing::sampleSessionID;
  rig.then([&] {
    rig.record(1s);
    rig.endInput();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
}

TEST(RecordingService, AWriterThatFailsEndsTheSessionAndLeavesItsFile) {
  Rig rig;
  rig.then([&] {
    rig.record(500ms);
    rig.segment(0).refusedAppend = rig.segment(0).appended.size();
    rig.record(500ms);
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), recordingFailed));
  EXPECT_THAT(rig.diagnostics(),
              ElementsAre(HasSubstr("recording-writer-failed stage=append-screen status=3"),
                          failedLine("unexpected-stream-stop")));
  EXPECT_THAT(rig.entries(), ElementsAre("segments/", "segments/segment-0000.mp4"));
  EXPECT_TRUE(rig.segment(0).isDestroyed);
  expectQuiet(rig);
}

TEST(RecordingService, AHostThatHasGoneEndsTheSession) {
  Rig rig;
  rig.onEvent = [](const std::string& event) {
    if (event.find("recording\"") == std::string::npos)
      throw FileFailure(FileOperation::write, EPIPE);
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("pause-finalize"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u) << "the segment is safe though nobody could be told";
  expectQuiet(rig);
}

// A session on a thread of its own, so that the test can turn the clock while it waits for a line.
void runWithStorageRunningOut(Rig& rig) {
  std::int32_t status = -1;
  rig.then([&] {
    rig.record(1s);
    rig.files.setAvailableBytes(1000);
  });
  std::thread session([&] { status = rig.run(); });
  while (rig.scheduler.timerCount() < 2) // the writer's heartbeat and the watch
    std::this_thread::yield();
  rig.scheduler.advance(1s);
  session.join();
  EXPECT_EQ(status, 1);
}

TEST(RecordingService, WhatTheMonitorFoundBeatsTheClosedInput) {
  Rig rig;
  runWithStorageRunningOut(rig);
  const std::vector<std::string> events = rig.events();
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[1], R"({"event":"healthChanged","health":{"screen":"healthy","storage":"critical"},)"
                       R"("schemaVersion":2,"sessionId":"ID"})");
  EXPECT_THAT(events[2], HasSubstr("segmentFinalized"));
  EXPECT_EQ(events[3],
            failed("recordingStorageLow",
                   "Recording stopped before storage filled. Recording sources were retained for recovery."));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "recordingStorageLow"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

TEST(RecordingService, WhatTheMonitorFoundBeatsAClosedWindow) {
  Rig rig;
  rig.request = testing::sampleRequest(CaptureKind::window);
  rig.request.outputDirectory = rig.directory / testing::sampleSessionID;
  rig.onEvent = [&](const std::string& event) {
    if (event.find("healthChanged") != std::string::npos)
      rig.stream().end();
  };
  runWithStorageRunningOut(rig);
  EXPECT_THAT(rig.lastEvent(), HasSubstr("recordingStorageLow"));
}

// ---- Failures of a stop

TEST(RecordingService, AMergeThatMeetsAFileFailsAndKeepsTheSegments) {
  for (const std::string name : {"screen.mp4", "recording.mp4"}) {
    Rig rig;
    rig.then([&] {
      rig.record(1s);
      rig.directory.write(testing::sampleSessionID + "/" + name, "in the way");
      rig.send("stop");
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000),
                                          segmentFinalized(0, 1033, 1033), recordingFailed));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-merge"));
    EXPECT_EQ(manifestSegments(rig).size(), 1u);
    EXPECT_EQ(rig.directory.read(testing::sampleSessionID + "/" + name), "in the way");
    expectQuiet(rig);
  }
}

TEST(RecordingService, AMergedFileThatIsDamagedFailsItsCheck) {
  for (const std::string name : {"screen.mp4", "recording.mp4"}) {
    Rig rig;
    rig.then([&] {
      rig.record(1s);
      rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
        // The first look at a merged file by its name that finds it is the check's.
        if (event.operation == FileOperation::open && event.path == rig.path(name) &&
            exists(machineFileSystem(), event.path))
          machineFileSystem().open(event.path, OpenMode::createTruncated)->write(0, {});
      });
      rig.send("stop");
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-validate"));
    EXPECT_EQ(manifestSegments(rig).size(), 1u);
  }
}

struct ShareLength {
  std::int64_t milliseconds; // by how much it differs from the screen track's
  bool passes;
};

class RecordingServiceShareLengthTest : public ::testing::TestWithParam<ShareLength> {};

TEST_P(RecordingServiceShareLengthTest, TheShareVideoIsAsLongAsTheScreenTrackToATenthOfASecond) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation == FileOperation::open && event.path == rig.path("recording.mp4"))
        testing::writeLittleMovie(machineFileSystem(), event.path, {MediaTime::zero()},
                                  MediaTime::milliseconds(1033 + GetParam().milliseconds));
    });
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), GetParam().passes ? 0 : 1);
  if (GetParam().passes) {
    EXPECT_THAT(rig.lastEvent(), HasSubstr("\"completed\""));
  } else {
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-validate"));
    EXPECT_TRUE(exists(rig.files, rig.path("screen.mp4"))) << "no merged file is removed";
    EXPECT_TRUE(exists(rig.files, rig.path("recording.mp4")));
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, RecordingServiceShareLengthTest,
                         ::testing::Values(ShareLength{-101, false}, ShareLength{-100, true},
                                           ShareLength{100, true}, ShareLength{101, false}));

TEST(RecordingService, AFileThatDoesNotComeOutWholeFailsTheStop) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.segment(0).completes = false;
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-finalize"));
  EXPECT_FALSE(exists(rig.files, rig.path("native-manifest.json")));
  expectQuiet(rig);
}

TEST(RecordingService, AManifestThatCannotBeWrittenFailsTheStop) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.files.inject({.operation = FileOperation::sync, .pathPart = "manifest", .errorNumber = ENOSPC});
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-finalize"));
}

TEST(RecordingService, AHostThatCannotBeToldOfCompletionFailsThere) {
  Rig rig;
  rig.onEvent = [](const std::string& event) {
    if (event.find("\"completed\"") != std::string::npos)
      throw FileFailure(FileOperation::write, EPIPE);
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-complete-event"));
}

} // namespace
} // namespace tessarin
