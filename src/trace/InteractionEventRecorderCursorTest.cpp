#include "support/InteractionRecorderRig.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::InteractionRecorderRig;
using Times = std::vector<std::int64_t>;
using Cursor = InteractionCursorEvent;

class InteractionEventRecorderCursorTest : public ::testing::Test, protected InteractionRecorderRig {};

TEST_F(InteractionEventRecorderCursorTest, SamplesAMovingPointerEvery33Milliseconds) {
  begin();
  for (int i = 1; i <= 30; ++i) {
    source.moveTo(100 + i * 10, 200 + i * 5);
    scheduler.advance(33ms);
  }
  const auto cursors = eventsOf<Cursor>();
  ASSERT_EQ(cursors.size(), 31U);
  for (std::size_t i = 0; i < cursors.size(); ++i) {
    EXPECT_EQ(cursors[i].timestampMs, static_cast<std::int64_t>(i) * 33);
    EXPECT_DOUBLE_EQ(cursors[i].x, static_cast<double>(i) * 0.01);
    EXPECT_DOUBLE_EQ(cursors[i].y, static_cast<double>(i) * 0.01);
    EXPECT_EQ(cursors[i].coordinateSpace, InteractionCoordinateSpace::captureTopLeft);
    EXPECT_EQ(cursors[i].cursorRendering, std::nullopt);
  }
}

TEST_F(InteractionEventRecorderCursorTest, SaysWhenThePictureShowsThePointer) {
  setup.cursorRenderedInSource = true;
  begin();
  EXPECT_EQ(text(), R"({"coordinateSpace":"captureTopLeft","cursorRendering":"source","kind":"cursor",)"
                    R"("timestampMs":0,"x":0,"y":0})"
                    "\n");
}

TEST_F(InteractionEventRecorderCursorTest, SamplesAnIdlePointerAfter500Milliseconds) {
  for (const bool isDue : {true, false}) {
    std::filesystem::remove(path);
    observe();
    scheduler.advance(isDue ? 28ms : 29ms);
    recorder->startSegment(0, std::nullopt);
    scheduler.advance(528ms - (isDue ? 28ms : 29ms)); // the 16th tick, 500 or 499 ms behind
    EXPECT_EQ(timesOf<Cursor>(), isDue ? (Times{0, 500}) : Times{0});
    scheduler.advance(33ms);
    EXPECT_EQ(timesOf<Cursor>(), isDue ? (Times{0, 500}) : (Times{0, 532}));
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderCursorTest, WritesAnIdlePointerTwiceASecond) {
  begin();
  scheduler.advance(10s);
  EXPECT_EQ(timesOf<Cursor>().size(), 19U); // every 16th tick
}

TEST_F(InteractionEventRecorderCursorTest, TellsMovementFromRest) {
  struct Row {
    double x, y;
    bool isMovement;
  };
  for (const Row& row : {Row{100.5, 200, true}, Row{100.499, 200, false}, Row{100, 200.25, true},
                         Row{100, 200.249, false}, Row{100.36, 200.18, true}, Row{100.35, 200.17, false}}) {
    std::filesystem::remove(path);
    source.moveTo(100, 200);
    begin();
    source.moveTo(row.x, row.y);
    scheduler.advance(33ms);
    EXPECT_EQ(timesOf<Cursor>(), row.isMovement ? (Times{0, 33}) : Times{0}) << row.x << ' ' << row.y;
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderCursorTest, SeesASlowPointerMove) {
  begin();
  for (int i = 1; i <= 10; ++i) { // a quarter of the least movement at each tick
    source.moveTo(100 + i * 0.1251, 200);
    scheduler.advance(33ms);
  }
  EXPECT_EQ(timesOf<Cursor>(), (Times{0, 132, 264}));
}

TEST_F(InteractionEventRecorderCursorTest, SkipsAPointerOutsideTheCapture) {
  begin();
  for (const auto& [x, y] :
       {std::pair{99.0, 300.0}, std::pair{1101.0, 300.0}, std::pair{500.0, 199.0}, std::pair{500.0, 701.0}}) {
    source.moveTo(x, y);
    scheduler.advance(1s);
  }
  EXPECT_EQ(timesOf<Cursor>(), Times{0});
  source.moveTo(1100, 700);
  scheduler.advance(33ms);
  ASSERT_EQ(timesOf<Cursor>().size(), 2U);
  EXPECT_EQ(eventsOf<Cursor>().back().x, 1);
  EXPECT_EQ(eventsOf<Cursor>().back().y, 1);
}

TEST_F(InteractionEventRecorderCursorTest, OpensEachSegmentWithASample) {
  begin();
  recorder->pauseSegment();
  recorder->startSegment(5, std::nullopt);
  recorder->startSegment(9, std::nullopt);
  EXPECT_EQ(timesOf<Cursor>(), (Times{0, 5, 9}));
}

TEST_F(InteractionEventRecorderCursorTest, GoesOnWhenThePointerCannotBeRead) {
  source.silencePointer();
  begin();
  scheduler.advance(100ms);
  EXPECT_EQ(text(), "");
  source.silencePointer(false);
  scheduler.advance(33ms);
  EXPECT_EQ(timesOf<Cursor>().size(), 1U);
  EXPECT_NO_THROW(recorder->finish());
}

TEST_F(InteractionEventRecorderCursorTest, LeavesThePointerAloneWhilePaused) {
  begin();
  recorder->pauseSegment();
  const std::size_t readings = source.readingCount();
  scheduler.advance(10s);
  EXPECT_EQ(source.readingCount(), readings);
}

} // namespace
} // namespace tessarin
