#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class CameraCompositePicturesTest : public CameraCompositeTest {};

// ---- Grid, gaps and pacing

TEST_F(CameraCompositePicturesTest, PlacesPicturesOnTheGrid) {
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

class CameraCompositePicturesHoleTest : public CameraCompositePicturesTest,
                                        public testing::WithParamInterface<Hole> {};

TEST_P(CameraCompositePicturesHoleTest, PlugsHolesWithAtMostThreeCopiesOfThePictureBefore) {
  makeAttached();
  deliver(1, 0s);
  deliver(2, GetParam().next);
  EXPECT_EQ(file().appends(), GetParam().appends);
  EXPECT_EQ(framesTold, static_cast<int>(file().appended.size()));
}

INSTANTIATE_TEST_SUITE_P(Holes, CameraCompositePicturesHoleTest,
                         testing::Values(Hole{100ms, "1@0/10 2@1/10"}, Hole{200ms, "1@0/10 1@1/10 2@2/10"},
                                         Hole{300ms, "1@0/10 1@1/10 1@2/10 2@3/10"},
                                         Hole{400ms, "1@0/10 1@1/10 1@2/10 1@3/10 2@4/10"},
                                         Hole{500ms,
                                              "1@0/10 1@1/10 1@2/10 1@3/10 2@5/10"}, // a slot stays empty
                                         Hole{1100ms, "1@0/10 1@1/10 1@2/10 1@3/10 2@11/10"}));

TEST_F(CameraCompositePicturesTest, OfTwoPicturesInOneSlotOnlyTheFirstIsWritten) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 60ms); // slot 1
  deliver(3, 100ms);
  deliver(4, 140ms);
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10");
}

TEST_F(CameraCompositePicturesTest, AnUnchangedPictureIsWrittenAgainAndNotRenderedAgain) {
  makeAttached();
  deliver(1, 0ms);
  streams.streams[0]->deliver(
      {.image = numberedPicture(1), .presentationTime = hostTime(100ms), .isUnchanged = true});
  EXPECT_EQ(file().appends(), "1@0/10 1@1/10");
  EXPECT_EQ(file().renderCount, 1u);
}

TEST_F(CameraCompositePicturesTest, APictureThatTheWriterHasNotSeenIsRenderedWhateverIsSaidOfIt) {
  makeAttached();
  streams.streams[0]->deliver(
      {.image = numberedPicture(1), .presentationTime = hostTime(0ms), .isUnchanged = true});
  EXPECT_EQ(file().appends(), "1@0/10");
}

TEST_F(CameraCompositePicturesTest, AHeartbeatRepeatsThePictureThatPacingHeldBack) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 40ms); // slot 0 again
  advanceTo(200ms); // timers at 100 and 200 ms; the stream is silent for two intervals at 200 ms
  EXPECT_EQ(file().appends(), "1@0/10 2@200000000/1000000000");
}

TEST_F(CameraCompositePicturesTest, APictureBeforeTheEpochFailsAsASnapshot) {
  makeAttached();
  deliver(1, 0ms);
  streams.streams[0]->deliver(2, MediaTime::nanoseconds(9'999'999'999));
  EXPECT_THAT(lines, ElementsAre("tessarin-native recording-writer-failed stage=screen-snapshot status=1 "
                                 "domain=none code=0 underlyingDomain=none underlyingCode=0"));
}

// ---- Back-pressure

TEST_F(CameraCompositePicturesTest, OfPicturesThatABusyFileCannotTakeOnlyTheNewestSurvives) {
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

TEST_F(CameraCompositePicturesTest, TheFirstPictureMayHaveToWaitToo) {
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

TEST_F(CameraCompositePicturesTest, APictureThatTheFileTakesAtOnceDropsTheOneThatWaits) {
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

TEST_F(CameraCompositePicturesTest, AFillerThatIsNotTakenEndsThePicturesWay) {
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

TEST_F(CameraCompositePicturesTest, AHeartbeatThatWaitsMovesNothingUntilItIsTaken) {
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

TEST_F(CameraCompositePicturesTest, ReadinessThatIsGoneAgainLeavesThePictureWaiting) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().setReady(true);
  file().setReady(false); // before the queue has looked
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10");
}

} // namespace
} // namespace tessarin
