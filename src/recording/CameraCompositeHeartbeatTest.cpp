#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;

class CameraCompositeHeartbeatTest : public CameraCompositeTest {};

TEST_F(CameraCompositeHeartbeatTest, NoTimerRunsBeforeTheFirstWrittenFrame) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.setReady(false); };
  makeAttached();
  deliver(1, 0s);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(scheduler.timerCount(), 1u);
}

TEST_F(CameraCompositeHeartbeatTest, AStaticScreenIsRepeatedAtTheTimersPace) {
  makeAttached();
  deliver(1, 0ms);
  advanceTo(199ms);
  EXPECT_EQ(file().appends(), "1@0/10") << "the stream must be silent for two intervals";
  advanceTo(500ms);
  // 300 ms is only one interval behind the frame at 200 ms, and 1.25 are needed.
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 1@400000000/1000000000");
  EXPECT_EQ(framesTold, 3);
}

TEST_F(CameraCompositeHeartbeatTest, TheTimerTakesTheWholeNanosecondsOfAnInterval) {
  settings.frameRate = 30;
  makeAttached();
  deliver(1, 0ms);
  advanceTo(66'666'667ns); // the timer at 66,666,666 ns came within two intervals
  EXPECT_EQ(file().appends(), "1@0/30");
  advanceTo(99'999'999ns);
  EXPECT_EQ(file().appends(), "1@0/30 1@99999999/1000000000");
}

TEST_F(CameraCompositeHeartbeatTest, HeartbeatsKeepOneAndAQuarterIntervalsApart) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 74ms);  // slot 1; timers stay at multiples of 100 ms
  advanceTo(300ms);  // exactly two intervals behind slot 1
  deliver(3, 300ms); // slot 3 does not clear 300 ms + 100 ms
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10 2@300000000/1000000000");
}

TEST_F(CameraCompositeHeartbeatTest, TheQuarterIntervalCountsToTheNanosecond) {
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

TEST_F(CameraCompositeHeartbeatTest, TheSilenceOfTheStreamCountsToTheNanosecond) {
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

TEST_F(CameraCompositeHeartbeatTest, BehindAHeartbeatTheStreamGoesBackToTheGrid) {
  makeAttached();
  deliver(1, 0ms);
  advanceTo(250ms);  // a heartbeat at 200 ms
  deliver(2, 251ms); // slot 3
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 2@3/10");
}

TEST_F(CameraCompositeHeartbeatTest, AHeartbeatWaitsForTheStreamsLastPictureAndNotForTheLastFrame) {
  makeAttached();
  deliver(1, 0ms);
  advanceTo(200ms);  // a heartbeat at 200 ms
  deliver(2, 240ms); // slot 2 is taken, so the picture is dropped, but the stream is alive
  advanceTo(399ms);
  EXPECT_EQ(file().appended.size(), 2u);
  advanceTo(400ms); // two intervals behind slot 2
  EXPECT_EQ(file().appends(), "1@0/10 1@200000000/1000000000 2@400000000/1000000000");
}

TEST_F(CameraCompositeHeartbeatTest, NoHeartbeatComesWhileTheClockStandsBeforeTheEpoch) {
  makeAttached();
  streams.streams[0]->deliver(1, MediaTime::nanoseconds(20'000'000'000));
  advanceTo(5s);
  EXPECT_EQ(file().appends(), "1@0/10");
}

} // namespace
} // namespace tessarin
