#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class CameraCompositeRecorderTest : public CameraCompositeTest {};

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
  EXPECT_EQ(file().trackCount, 1u);
  EXPECT_THAT(scheduler.labels(), ElementsAre("com.tessarin.recording.camera-compositor",
                                              "com.tessarin.recording.system-audio-capture"));
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
  make();
  streams.streams[0]->refusesOutputs = true;
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

// ---- Detaching

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
