#include "support/CameraCompositeRig.hpp"

#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class CameraCompositeFinishTest : public CameraCompositeTest {};

TEST_F(CameraCompositeFinishTest, FinishingClosesTheFileAndTellsTheSummary) {
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

TEST_F(CameraCompositeFinishTest, MoreFramesThanExpectedStillShowOneThousand) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("videoDeliveryPermille=1000 ")));
}

TEST_F(CameraCompositeFinishTest, ALoneFrameCountsAsFullDelivery) {
  makeAttached();
  deliver(1, 0ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("videoDeliveryPermille=1000 ")));
}

TEST_F(CameraCompositeFinishTest, FinishingGivesUpAPictureThatStillWaits) {
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

TEST_F(CameraCompositeFinishTest, FinishingWithoutAFrameDropsTheFileAndThrows) {
  makeAttached();
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
  EXPECT_THAT(file().calls, ElementsAre("cancelWriting"));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(CameraCompositeFinishTest, FinishingThrowsWhenTheFileDidNotComeOutWhole) {
  makeAttached();
  deliver(1, 0ms);
  file().completes = false;
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
  EXPECT_THAT(lines, IsEmpty()) << "no summary of a failed segment";
}

TEST_F(CameraCompositeFinishTest, CancellingDropsTheFileAndWakesAWaitingOwner) {
  makeAttached();
  deliver(1, 0ms);
  recorder->detach(*stream);
  recorder->cancel();
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0", "cancelWriting"));
  EXPECT_EQ(scheduler.timerCount(), 0u);
  EXPECT_EQ(errorOf([&] { recorder->waitUntilStarted(5s); }), recordingFailed);
  EXPECT_EQ(failuresTold, 0) << "a cancellation is no failure";
}

// ---- All tracks

TEST_F(CameraCompositeFinishTest, TracksAreFinishedInTheOrderOfTheFile) {
  useCamera();
  useSystemAudio();
  useMicrophone();
  makeAttached();
  deliver(1, 0ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(file().calls,
              ElementsAre("startWriting", "startSession 0", "markAsFinished", "markAsFinished 1",
                          "markAsFinished 2", "markAsFinished 3", "finishWriting"));
}

TEST_F(CameraCompositeFinishTest, APictureFromBeforeTheSegmentTookNoTimeToCome) {
  clock.set(epoch + 8ms);
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  recorder->detach(*stream);
  recorder->finish();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines.front(), testing::HasSubstr(" startupMs=0 "));
}

TEST_F(CameraCompositeFinishTest, TheSummaryTellsHowFarTheTracksAreApart) {
  useCamera();
  useSystemAudio();
  useMicrophone();
  clock.set(epoch - 250'500us);
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  deliver(3, 200ms);
  play(480, 12'500us); // halves go away from zero
  play(480, 180ms);
  file().track(3).setReady(false);
  speak(480, 0ms);
  speak(480, 220ms);
  speak(505, 230ms); // 240.52 ms wait
  file().track(3).becomeReadyUnnoticed();
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre("tessarin-native recording-summary startupMs=251 videoDeliveryPermille=1000 "
                                 "maxAudioQueueMs=241 systemAudioDriftMs=13/20 microphoneDriftMs=0/30 "
                                 "cameraDriftMs=0/0 screenFrames=3 cameraFrames=3"));
}

TEST_F(CameraCompositeFinishTest, TheLargestQueueOfBothLanesIsTold) {
  useSystemAudio();
  useMicrophone();
  makeAttached();
  deliver(1, 0ms);
  file().track(1).setReady(false);
  file().track(2).setReady(false);
  play(480, 0ms);
  play(480, 490ms); // 500 ms wait
  speak(480, 0ms);
  file().track(1).becomeReadyUnnoticed();
  file().track(2).becomeReadyUnnoticed();
  advanceTo(5ms);
  play(480, 600ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr(" maxAudioQueueMs=500 ")));
}

TEST_F(CameraCompositeFinishTest, ALaneThatGotNothingIsMissing) {
  useSystemAudio();
  useMicrophone();
  makeAttached();
  play(480, -10ms);
  deliver(1, 0ms);
  speak(480, 2ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("systemAudioDriftMs=missing microphoneDriftMs=2/2 ")));
}

TEST_F(CameraCompositeFinishTest, ALateCameraTrackIsTold) {
  useCamera();
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.track(1).setReady(false); };
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  file().track(1).setReady(true);
  scheduler.runPending();
  deliver(3, 200ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("cameraDriftMs=100/0 screenFrames=2 cameraFrames=2")));
}

TEST_F(CameraCompositeFinishTest, FinishingThrowsTheFirstFailure) {
  useCamera();
  useMicrophone();
  makeAttached();
  deliver(1, 0ms);
  speak(480, 0ms);
  speak(480, 0ms);
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), microphoneUnavailable);
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0")) << "the file stays as it is";
}

TEST_F(CameraCompositeFinishTest, FinishingWithoutAFrameIsTheCamerasFailureWhenThereIsOne) {
  useCamera();
  makeAttached();
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
  EXPECT_THAT(file().calls, ElementsAre("cancelWriting"));
}

TEST_F(CameraCompositeFinishTest, AFileThatDidNotComeOutWholeIsTheCamerasFailureWhenThereIsOne) {
  useCamera();
  makeAttached();
  deliver(1, 0ms);
  file().completes = false;
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeFinishTest, FinishingWaitsForTheFile) {
  makeAttached();
  deliver(1, 0ms);
  file().holdsCompletion = true;
  file().onFinish = [&](ScriptedMediaFile&) { lines.emplace_back("the file is whole"); };
  recorder->detach(*stream);
  std::thread finishing([&] { recorder->finish(); });
  while (!file().isFinishing())
    std::this_thread::yield();
  EXPECT_THAT(lines, IsEmpty());
  file().complete();
  finishing.join();
  EXPECT_THAT(lines, ElementsAre("the file is whole", testing::HasSubstr("recording-summary")));
}

} // namespace
} // namespace tessarin
