#include "support/CameraCompositeRig.hpp"

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

} // namespace
} // namespace tessarin
