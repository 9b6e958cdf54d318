// Running sessions: what a host sees of each order of control lines, and what is on disk behind it.

#include "support/RecordingServiceTesting.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Rig = RecordingRig;

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
    rig.write("interaction-events.jsonl", "{}\n");
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
    rig.write("interaction-events.jsonl", "");
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

} // namespace
} // namespace tessarin
