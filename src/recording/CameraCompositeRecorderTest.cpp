#include "recording/CameraCompositeRecorder.hpp"

#include "support/ManualQueue.hpp"
#include "support/ScriptedMediaWriter.hpp"
#include "support/ScriptedScreenStream.hpp"

#include <gmock/gmock.h>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto epoch = 10s; // host time at which the first picture of a test comes

const NativeServiceError recordingFailed{NativeErrorCode::recordingFailed,
                                         "The screen recording could not be completed."};

// A recorder at 10 frames a second (so that an interval is 100 ms), attached to a stream, all of its queues
// and its clock turned by hand.
class CameraCompositeRecorderTest : public testing::Test {
 protected:
  CameraCompositeRecorderTest() {
    settings.frameRate = 10;
    plan.outputWidth = 640;
    plan.outputHeight = 480;
    plan.averageBitRate = 2'000'000;
  }
  ~CameraCompositeRecorderTest() override { destroy(); }

  void make() {
    recorder = std::make_unique<CameraCompositeRecorder>(
        CameraCompositeSetup{.outputPath = "/session/segments/segment-0000.mp4",
                             .plan = plan,
                             .settings = settings,
                             .media = media,
                             .clock = clock,
                             .diagnostics = [this](const std::string& line) { lines.push_back(line); },
                             .wroteScreenFrame =
                                 [this] {
                                   ++framesTold;
                                   if (whenFrameIsTold)
                                     whenFrameIsTold();
                                 },
                             .failureHandler = [this] { ++failuresTold; }},
        scheduler.queueFactory());
  }
  void makeAttached() {
    make();
    recorder->attach(*stream);
  }
  void destroy() {
    if (recorder)
      recorder->detach(*stream);
    recorder.reset();
  }

  std::optional<NativeServiceError> errorOf(const std::function<void()>& work) {
    try {
      work();
      return std::nullopt;
    } catch (const NativeServiceError& error) {
      return error;
    }
  }

  // The stream delivers a picture at that time behind the epoch, and the clock stands there.
  void deliver(std::uint8_t picture, ManualClock::Duration time) {
    clock.set(epoch + time);
    streams.streams[0]->deliver(picture, clock.now());
  }
  // Turns the clock to a time behind the epoch, timers included.
  void advanceTo(ManualClock::Duration time) { scheduler.advance(epoch + time - clock.elapsed()); }

  ScriptedMediaFile& file() { return *media.files.at(0); }

  ManualClock clock{epoch};
  ManualScheduler scheduler{clock};
  ScriptedMediaFileWriterFactory media;
  ScriptedScreenStreamFactory streams{clock};
  std::unique_ptr<ScreenStream> stream = streams.makeStream({}, {}, {});
  RecordingConfigurationPlan plan;
  RecordingSettingsDTO settings;
  std::vector<std::string> lines;
  int framesTold = 0;
  std::function<void()> whenFrameIsTold;
  int failuresTold = 0;
  std::unique_ptr<CameraCompositeRecorder> recorder;
};

// ---- Set-up

TEST_F(CameraCompositeRecorderTest, AsksForAFragmentedFileOfOneScreenTrack) {
  make();
  EXPECT_EQ(file().options.path, "/session/segments/segment-0000.mp4");
  EXPECT_EQ(file().options.initialFragmentInterval.value(), 600);
  EXPECT_EQ(file().options.initialFragmentInterval.timescale(), 600);
  EXPECT_EQ(file().options.fragmentInterval.value(), 6000);
  EXPECT_EQ(file().options.fragmentInterval.timescale(), 600);
  EXPECT_EQ(file().video, (VideoSettings{.codec = RecordingCodec::h264,
                                         .width = 640,
                                         .height = 480,
                                         .averageBitRate = 2'000'000,
                                         .expectedFrameRate = 10,
                                         .maximumKeyFrameInterval = 10,
                                         .allowFrameReordering = false,
                                         .expectsMediaDataInRealTime = true}));
  EXPECT_THAT(scheduler.labels(), ElementsAre("com.tessarin.recording.camera-compositor"));
  EXPECT_THAT(file().calls, IsEmpty()) << "the file is not begun before the first picture";
}

TEST_F(CameraCompositeRecorderTest, WritesHevcWhenAskedTo) {
  settings.codec = RecordingCodec::hevc;
  make();
  EXPECT_EQ(file().video->codec, RecordingCodec::hevc);
}

TEST_F(CameraCompositeRecorderTest, RefusesACodecThatCannotBeApplied) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.appliesSettings = false; };
  EXPECT_EQ(errorOf([&] { make(); }),
            (NativeServiceError{NativeErrorCode::codecUnavailable,
                                "The selected recording codec is unavailable on this Mac."}));
}

TEST_F(CameraCompositeRecorderTest, FailsWhenTheTrackCannotBeAdded) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.addsInput = false; };
  EXPECT_EQ(errorOf([&] { make(); }), recordingFailed);
}

TEST_F(CameraCompositeRecorderTest, PassesOnThatThereAreNoCodecsAtAll) {
  media.isUnavailable = true;
  EXPECT_THROW(make(), MediaUnavailable);
}

TEST_F(CameraCompositeRecorderTest, PassesOnThatTheStreamTakesNoOutput) {
  streams.streams[0]->refusesOutputs = true;
  make();
  EXPECT_THROW(recorder->attach(*stream), CaptureFailure);
}

// ---- The first frame

TEST_F(CameraCompositeRecorderTest, TheFirstPictureBeginsTheFileAndFixesTheEpoch) {
  makeAttached();
  EXPECT_EQ(recorder->epochHostTimeNanoseconds(), std::nullopt);
  deliver(1, 0s);
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0"));
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(recorder->epochHostTimeNanoseconds(), 10'000'000'000u);
  EXPECT_EQ(framesTold, 1);
  recorder->waitUntilStarted(5s); // returns at once
}

TEST_F(CameraCompositeRecorderTest, ASampleWithoutAPictureChangesNothing) {
  makeAttached();
  streams.streams[0]->deliver({std::nullopt, MediaTime()});
  EXPECT_THAT(file().calls, IsEmpty());
  deliver(1, 0s);
  streams.streams[0]->deliver({std::nullopt, clock.now()});
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(failuresTold, 0);
}

TEST_F(CameraCompositeRecorderTest, NoPictureComesInBeforeAttachmentOrBehindDetachment) {
  make();
  deliver(1, 0s);
  recorder->attach(*stream);
  recorder->detach(*stream);
  deliver(2, 0s);
  EXPECT_EQ(file().appends(), "");
}

// ---- Grid, gaps and pacing

TEST_F(CameraCompositeRecorderTest, PlacesPicturesOnTheGrid) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 149ms);
  deliver(3, 250ms); // halves go up
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10 2@2/10 3@3/10");
}

struct Hole {
  ManualClock::Duration next; // when the stream delivers again
  const char* appends;
};

class CameraCompositeRecorderHoleTest : public CameraCompositeRecorderTest,
                                        public testing::WithParamInterface<Hole> {};

TEST_P(CameraCompositeRecorderHoleTest, PlugsHolesWithAtMostThreeCopiesOfThePictureBefore) {
  makeAttached();
  deliver(1, 0s);
  deliver(2, GetParam().next);
  EXPECT_EQ(file().appends(), GetParam().appends);
  EXPECT_EQ(framesTold, static_cast<int>(file().appended.size()));
}

INSTANTIATE_TEST_SUITE_P(Holes, CameraCompositeRecorderHoleTest,
                         testing::Values(Hole{100ms, "1@0/10 2@1/10"}, Hole{200ms, "1@0/10 1@1/10 2@2/10"},
                                         Hole{300ms, "1@0/10 1@1/10 1@2/10 2@3/10"},
                                         Hole{400ms, "1@0/10 1@1/10 1@2/10 1@3/10 2@4/10"},
                                         Hole{500ms,
                                              "1@0/10 1@1/10 1@2/10 1@3/10 2@5/10"}, // a slot stays empty
                                         Hole{1100ms, "1@0/10 1@1/10 1@2/10 1@3/10 2@11/10"}));

TEST_F(CameraCompositeRecorderTest, OfTwoPicturesInOneSlotOnlyTheFirstIsWritten) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 60ms); // slot 1
  deliver(3, 100ms);
  deliver(4, 140ms);
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10");
}

TEST_F(CameraCompositeRecorderTest, AHeartbeatRepeatsThePictureThatPacingHeldBack) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 40ms); // slot 0 again
  advanceTo(200ms); // timers at 100 and 200 ms; the stream is silent for two intervals at 200 ms
  EXPECT_EQ(file().appends(), "1@0/10 2@200000000/1000000000");
}

TEST_F(CameraCompositeRecorderTest, APictureBeforeTheEpochFailsAsASnapshot) {
  makeAttached();
  deliver(1, 0ms);
  streams.streams[0]->deliver(2, MediaTime::nanoseconds(9'999'999'999));
  EXPECT_THAT(lines, ElementsAre("tessarin-native recording-writer-failed stage=screen-snapshot status=1 "
                                 "domain=none code=0 underlyingDomain=none underlyingCode=0"));
}

// ---- Heartbeats

TEST_F(CameraCompositeRecorderTest, NoTimerRunsBeforeTheFirstWrittenFrame) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.setReady(false); };
  makeAttached();
  deliver(1, 0s);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(scheduler.timerCount(), 1u);
}

TEST_F(CameraCompositeRecorderTest, AStaticScreenIsRepeatedAtTheTimersPace) {
  makeAttached();
  deliver(1, 0ms);
  advanceTo(199ms);
  EXPECT_EQ(file().appends(), "1@0/10") << "the stream must be silent for two intervals";
  advanceTo(500ms);
  // 300 ms is only one interval behind the frame at 200 ms, and 1.25 are needed.
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 1@400000000/1000000000");
  EXPECT_EQ(framesTold, 3);
}

TEST_F(CameraCompositeRecorderTest, TheTimerTakesTheWholeNanosecondsOfAnInterval) {
  settings.frameRate = 30;
  makeAttached();
  deliver(1, 0ms);
  advanceTo(66'666'667ns); // the timer at 66,666,666 ns came within two intervals
  EXPECT_EQ(file().appends(), "1@0/30");
  advanceTo(99'999'999ns);
  EXPECT_EQ(file().appends(), "1@0/30 1@99999999/1000000000");
}

TEST_F(CameraCompositeRecorderTest, HeartbeatsKeepOneAndAQuarterIntervalsApart) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 74ms);  // slot 1; timers stay at multiples of 100 ms
  advanceTo(300ms);  // exactly two intervals behind slot 1
  deliver(3, 300ms); // slot 3 does not clear 300 ms + 100 ms
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10 2@300000000/1000000000");
}

TEST_F(CameraCompositeRecorderTest, TheQuarterIntervalCountsToTheNanosecond) {
  for (const bool isEnough : {false, true}) {
    media.files.clear();
    clock.set(epoch);
    makeAttached();
    deliver(1, 0ms);
    advanceTo(200ms); // a heartbeat
    clock.set(epoch + (isEnough ? 325'000'000ns : 324'999'999ns));
    scheduler.advance(0ns); // the timer that was due at 300 ms
    EXPECT_EQ(file().appended.size(), isEnough ? 3u : 2u);
    destroy();
  }
}

TEST_F(CameraCompositeRecorderTest, TheSilenceOfTheStreamCountsToTheNanosecond) {
  for (const bool isEnough : {false, true}) {
    media.files.clear();
    clock.set(epoch);
    makeAttached();
    deliver(1, 0ms);
    clock.set(epoch + (isEnough ? 200'000'000ns : 199'999'999ns));
    scheduler.advance(0ns); // the timer that was due at 100 ms
    EXPECT_EQ(file().appended.size(), isEnough ? 2u : 1u);
    destroy();
  }
}

TEST_F(CameraCompositeRecorderTest, BehindAHeartbeatTheStreamGoesBackToTheGrid) {
  makeAttached();
  deliver(1, 0ms);
  advanceTo(250ms);  // a heartbeat at 200 ms
  deliver(2, 251ms); // slot 3
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 2@3/10");
}

TEST_F(CameraCompositeRecorderTest, AHeartbeatWaitsForTheStreamsLastPictureAndNotForTheLastFrame) {
  makeAttached();
  deliver(1, 0ms);
  advanceTo(200ms);  // a heartbeat at 200 ms
  deliver(2, 240ms); // slot 2 is taken, so the picture is dropped, but the stream is alive
  advanceTo(399ms);
  EXPECT_EQ(file().appended.size(), 2u);
  advanceTo(400ms); // two intervals behind slot 2
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 2@400000000/1000000000");
}

TEST_F(CameraCompositeRecorderTest, NoHeartbeatComesWhileTheClockStandsBeforeTheEpoch) {
  makeAttached();
  streams.streams[0]->deliver(1, MediaTime::nanoseconds(20'000'000'000));
  advanceTo(5s);
  EXPECT_EQ(file().appends(), "1@0/10");
}

// ---- Back-pressure

TEST_F(CameraCompositeRecorderTest, OfPicturesThatABusyFileCannotTakeOnlyTheNewestSurvives) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  deliver(3, 210ms); // its filler for slot 1 takes the slot, and the picture itself is not written
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(file().observerCount(), 1u) << "one observation, however often it is busy";
  EXPECT_EQ(framesTold, 1) << "only what the file took counts";

  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10");
  EXPECT_EQ(framesTold, 2);
  EXPECT_EQ(file().observerCount(), 1u) << "the observation stays";
}

TEST_F(CameraCompositeRecorderTest, TheFirstPictureMayHaveToWaitToo) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.setReady(false); };
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  EXPECT_EQ(file().appends(), "");
  EXPECT_EQ(recorder->epochHostTimeNanoseconds(), 10'000'000'000u) << "the epoch is the first picture's";
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "2@1/10");
  recorder->waitUntilStarted(5s); // returns at once
}

TEST_F(CameraCompositeRecorderTest, APictureThatTheFileTakesAtOnceDropsTheOneThatWaits) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  scheduler.runPending(); // the observation's first call
  file().becomeReadyUnnoticed();
  deliver(3, 140ms); // slot 1 as well, and still free
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10 3@1/10");
}

TEST_F(CameraCompositeRecorderTest, AFillerThatIsNotTakenEndsThePicturesWay) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 300ms);
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10 1@1/10") << "the first filler waited, the rest was given up";
  deliver(3, 400ms);
  EXPECT_EQ(file().appends(), "1@0/10 1@1/10 2@2/10 2@3/10 3@4/10")
      << "the picture was kept as what later holes are filled with";
}

TEST_F(CameraCompositeRecorderTest, AHeartbeatThatWaitsMovesNothingUntilItIsTaken) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  advanceTo(200ms);
  file().setReady(true);
  advanceTo(200ms);
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000");
  advanceTo(400ms);
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 1@400000000/1000000000");
}

TEST_F(CameraCompositeRecorderTest, ReadinessThatIsGoneAgainLeavesThePictureWaiting) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().setReady(true);
  file().setReady(false); // before the queue has looked
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10");
}

// ---- Failures

struct FailingStage {
  const char* stage;
  const char* status;
  std::function<void(ScriptedMediaFile&)> script;
  bool hasNumericTime = true;
};

class CameraCompositeRecorderFailureTest : public CameraCompositeRecorderTest,
                                           public testing::WithParamInterface<FailingStage> {};

TEST_P(CameraCompositeRecorderFailureTest, IsToldOnceWithItsStageAndEndsTheWriting) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { GetParam().script(script); };
  makeAttached();
  const MediaTime time = GetParam().hasNumericTime ? clock.now() : MediaTime();
  streams.streams[0]->deliver(1, time);
  streams.streams[0]->deliver(2, time);

  EXPECT_THAT(lines, ElementsAre(std::string("tessarin-native recording-writer-failed stage=") +
                                 GetParam().stage + " status=" + GetParam().status +
                                 " domain=none code=0 underlyingDomain=none underlyingCode=0"));
  EXPECT_EQ(failuresTold, 1);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  EXPECT_EQ(file().appends(), "");
  EXPECT_EQ(errorOf([&] { recorder->waitUntilStarted(5s); }), recordingFailed);
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
  EXPECT_THAT(file().calls, testing::Not(testing::Contains("cancelWriting"))) << "that is for the owner";
}

INSTANTIATE_TEST_SUITE_P(
    Stages, CameraCompositeRecorderFailureTest,
    testing::Values(
        FailingStage{"screen-timestamp", "0", [](ScriptedMediaFile&) {}, false},
        FailingStage{"start-writing", "3", [](ScriptedMediaFile& file) { file.startsWriting = false; }},
        FailingStage{"screen-snapshot", "1", [](ScriptedMediaFile& file) { file.renders = false; }},
        FailingStage{"append-screen", "3", [](ScriptedMediaFile& file) { file.refusedAppend = 0; }}));

TEST_F(CameraCompositeRecorderTest, AFailureLineNamesWhereTheWritersErrorCameFrom) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) {
    script.refusedAppend = 0;
    script.error = {.domain = "libav", .code = -22, .underlyingDomain = "POSIX", .underlyingCode = 28};
  };
  makeAttached();
  deliver(1, 0s);
  EXPECT_THAT(lines, ElementsAre("tessarin-native recording-writer-failed stage=append-screen status=3 "
                                 "domain=libav code=-22 underlyingDomain=POSIX underlyingCode=28"));
}

TEST_F(CameraCompositeRecorderTest, AFailureStopsHeartbeatsAndObservations) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().renders = false;
  deliver(3, 200ms);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  EXPECT_EQ(file().observerCount(), 0u);
  file().setReady(true);
  advanceTo(5s);
  EXPECT_EQ(file().appends(), "1@0/10");
}

TEST_F(CameraCompositeRecorderTest, APictureThatWaitedMayFailToo) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().refusedAppend = 1;
  file().setReady(true);
  scheduler.runPending();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen")));
}

TEST_F(CameraCompositeRecorderTest, AHeartbeatAndAFillerMayFailToo) {
  makeAttached();
  deliver(1, 0ms);
  file().refusedAppend = 1;
  advanceTo(200ms);
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen")));
  destroy();

  media.files.clear();
  lines.clear();
  clock.set(epoch);
  makeAttached();
  deliver(1, 0ms);
  file().refusedAppend = 1;
  deliver(2, 200ms);
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen")));
}

TEST_F(CameraCompositeRecorderTest, AFileThatFailsMeanwhileIsNoticedAtTheNextPicture) {
  makeAttached();
  deliver(1, 0ms);
  file().failMeanwhile();
  deliver(2, 100ms);
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen status=3")));
  EXPECT_EQ(failuresTold, 1);
}

TEST_F(CameraCompositeRecorderTest, AFileThatFailsMeanwhileIsNoticedByAPictureThatWaits) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().failMeanwhile();
  scheduler.runPending();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen status=3")));
  EXPECT_EQ(failuresTold, 1);
}

// ---- Duration

TEST_F(CameraCompositeRecorderTest, TheRecordedDurationIsTheLongerOfTheWrittenAndTheElapsed) {
  makeAttached();
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::zero());
  deliver(1, 0ms);
  clock.set(epoch + 130ms);
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::milliseconds(130));
  // A picture may lie ahead of the clock.
  streams.streams[0]->deliver(2, MediaTime::nanoseconds(10'300'000'000));
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::milliseconds(300));
  recorder->detach(*stream);
  clock.set(epoch + 700ms);
  recorder->finish();
  clock.set(epoch + 9s);
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::milliseconds(700)) << "the clock stops at the finish";
}

TEST_F(CameraCompositeRecorderTest, AClockBeforeTheEpochCountsAsNothingElapsed) {
  makeAttached();
  streams.streams[0]->deliver(1, MediaTime::nanoseconds(20'000'000'000));
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::zero());
}

// ---- Detaching, finishing, cancelling

TEST_F(CameraCompositeRecorderTest, DetachingTimesItsStepsInWholeMilliseconds) {
  makeAttached();
  deliver(1, 0s);
  file().setReady(false);
  deliver(2, 100ms);
  file().setReady(true); // a drain waits in the queue
  streams.streams[0]->onRemoveOutput = [this] { clock.advance(7'999'999ns); };
  whenFrameIsTold = [this] { clock.advance(3ms); };
  const RecordingDetachTiming timing = recorder->detach(*stream);
  EXPECT_EQ(timing.microphoneStopMs, 0u);
  EXPECT_EQ(timing.outputRemovalMs, 7u);
  EXPECT_EQ(timing.audioDrainMs, 0u);
  EXPECT_EQ(timing.writerQueueDrainMs, 3u);
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10") << "what was handed to the queue has run";
  EXPECT_EQ(streams.streams[0]->outputCount(), 0u);
}

TEST_F(CameraCompositeRecorderTest, DetachingAgainRemovesNothing) {
  makeAttached();
  recorder->detach(*stream);
  recorder->detach(*stream);
  EXPECT_THAT(streams.streams[0]->calls, ElementsAre("addScreenOutput", "removeScreenOutput"));
}

TEST_F(CameraCompositeRecorderTest, FinishingClosesTheFileAndTellsTheSummary) {
  clock.set(epoch - 250ms);
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  deliver(3, 300ms);
  deliver(4, 1000ms); // leaves holes: 2..., so 30 % are missing
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0", "markAsFinished", "finishWriting"));
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10 2@2/10 3@3/10 3@4/10 3@5/10 3@6/10 4@10/10");
  EXPECT_THAT(lines, ElementsAre("tessarin-native recording-summary startupMs=250 videoDeliveryPermille=800 "
                                 "maxAudioQueueMs=0 systemAudioDriftMs=missing microphoneDriftMs=missing "
                                 "cameraDriftMs=missing screenFrames=8 cameraFrames=0"));
  EXPECT_EQ(scheduler.timerCount(), 0u);
}

TEST_F(CameraCompositeRecorderTest, MoreFramesThanExpectedStillShowOneThousand) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("videoDeliveryPermille=1000 ")));
}

TEST_F(CameraCompositeRecorderTest, ALoneFrameCountsAsFullDelivery) {
  makeAttached();
  deliver(1, 0ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("videoDeliveryPermille=1000 ")));
}

TEST_F(CameraCompositeRecorderTest, FinishingGivesUpAPictureThatStillWaits) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  recorder->detach(*stream);
  recorder->finish();
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(file().observerCount(), 0u);
  EXPECT_EQ(lines.size(), 1u);
}

TEST_F(CameraCompositeRecorderTest, FinishingWithoutAFrameDropsTheFileAndThrows) {
  makeAttached();
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
  EXPECT_THAT(file().calls, ElementsAre("cancelWriting"));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(CameraCompositeRecorderTest, FinishingThrowsWhenTheFileDidNotComeOutWhole) {
  makeAttached();
  deliver(1, 0ms);
  file().completes = false;
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
  EXPECT_THAT(lines, IsEmpty()) << "no summary of a failed segment";
}

TEST_F(CameraCompositeRecorderTest, CancellingDropsTheFileAndWakesAWaitingOwner) {
  makeAttached();
  deliver(1, 0ms);
  recorder->detach(*stream);
  recorder->cancel();
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0", "cancelWriting"));
  EXPECT_EQ(scheduler.timerCount(), 0u);
  EXPECT_EQ(errorOf([&] { recorder->waitUntilStarted(5s); }), recordingFailed);
  EXPECT_EQ(failuresTold, 0) << "a cancellation is no failure";
}

TEST_F(CameraCompositeRecorderTest, DestructionLeavesNothingRunning) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().setReady(true); // a drain waits in the queue
  destroy();
  EXPECT_TRUE(file().isDestroyed);
  EXPECT_EQ(file().observerCount(), 0u);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  advanceTo(1s);
}

} // namespace
} // namespace tessarin
