#include "support/InteractionRecorderRig.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::InteractionRecorderRig;
using Times = std::vector<std::int64_t>;
using Click = InteractionClickEvent;
using Buttons = std::vector<InteractionMouseButton>;
using enum InteractionMouseButton;

class InteractionEventRecorderClickTest : public ::testing::Test, protected InteractionRecorderRig {
 protected:
  InteractionEventRecorderClickTest() {
    setup.recordsCursor = false;
    setup.recordsShortcuts = false;
  }

  Times times() { return timesOf<Click>(); }
  Buttons buttons() {
    Buttons found;
    for (const Click& click : eventsOf<Click>())
      found.push_back(click.button);
    return found;
  }
  void expectFinished() { EXPECT_NO_THROW(recorder->finish()); }
};

TEST_F(InteractionEventRecorderClickTest, WritesAPressWhereAndWhenItWas) {
  begin();
  clock.advance(7ms);
  source.moveTo(350, 300);
  source.press(right);
  EXPECT_EQ(text(), R"({"button":"right","coordinateSpace":"captureTopLeft","kind":"click",)"
                    R"("timestampMs":7,"x":0.25,"y":0.2})"
                    "\n");
}

TEST_F(InteractionEventRecorderClickTest, SeesEachButtonByBothPaths) {
  for (const bool byPolling : {false, true}) {
    std::filesystem::remove(path);
    source.muteMonitors(byPolling);
    begin();
    for (const InteractionMouseButton button : {left, right, other, left}) {
      source.click(button);
      scheduler.advance(33ms);
    }
    EXPECT_EQ(buttons(), (Buttons{left, right, other, left}));
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderClickTest, WritesAClickThatBothPathsSeeOnce) {
  begin();
  for (int i = 0; i < 20; ++i) {
    source.click();
    scheduler.advance(200ms);
    source.press(other);
    scheduler.advance(200ms);
    source.release(other);
    scheduler.advance(200ms);
  }
  EXPECT_EQ(buttons().size(), 40U);
}

TEST_F(InteractionEventRecorderClickTest, MissesNoClickHoweverShort) {
  source.muteMonitors();
  begin();
  Times expected;
  for (int i = 1; i <= 50; ++i) {
    source.click(); // down and up between two readings
    scheduler.advance(99ms);
    expected.push_back((i - 1) * 99 + 33);
  }
  EXPECT_EQ(times(), expected);
}

TEST_F(InteractionEventRecorderClickTest, SeesAHeldButtonOnce) {
  source.muteMonitors();
  begin();
  source.press(left);
  scheduler.advance(5s);
  source.release(left);
  scheduler.advance(5s);
  EXPECT_EQ(times(), Times{33});
}

TEST_F(InteractionEventRecorderClickTest, SeesPressesOfASourceThatCannotCount) {
  // Only the state of the buttons tells.
  class Uncounted final : public InteractionSource {
   public:
    std::optional<PointerState> pointer() override { return state; }
    bool isSecureInput() override { return false; }
    std::unique_ptr<InteractionMonitor> monitor(InteractionHandlers) override { return nullptr; }
    PointerState state = {.location = {100, 200}, .isDown = {}, .pressCount = {}};
  } uncounted;
  InteractionEventRecorder plain(setup, uncounted, clock, files, scheduler.queueFactory());
  plain.startObserving();
  plain.startSegment(0, std::nullopt);
  for (int i = 0; i < 3; ++i) {
    scheduler.advance(99ms);
    uncounted.state.isDown[2] = true;
    scheduler.advance(99ms);
    uncounted.state.isDown[2] = false;
  }
  EXPECT_EQ(buttons(), (Buttons{other, other, other}));
}

TEST_F(InteractionEventRecorderClickTest, WritesButtonsOfOneReadingInTheirOrder) {
  source.muteMonitors();
  begin();
  source.click(other);
  source.click(left);
  source.press(right);
  scheduler.advance(33ms);
  EXPECT_EQ(buttons(), (Buttons{left, right, other}));
  EXPECT_EQ(times(), (Times{33, 33, 33}));
}

TEST_F(InteractionEventRecorderClickTest, TellsASecondClickByItsTime) {
  for (const auto& [apart, clicks] : {std::pair{80ms, 1U}, std::pair{81ms, 2U}}) {
    std::filesystem::remove(path);
    begin();
    source.click();
    clock.advance(apart);
    source.click();
    EXPECT_EQ(times().size(), clicks);
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderClickTest, TellsASecondClickByItsPlace) {
  for (const auto& [x, y, clicks] :
       {std::tuple{110.0, 200.0, 2U}, std::tuple{109.99, 200.0, 1U}, std::tuple{100.0, 205.0, 2U},
        std::tuple{100.0, 204.99, 1U}, std::tuple{107.2, 203.6, 2U}, std::tuple{107.0, 203.5, 1U}}) {
    std::filesystem::remove(path);
    source.moveTo(100, 200);
    begin();
    source.click();
    source.moveTo(x, y);
    source.click();
    EXPECT_EQ(times().size(), clicks) << x << ' ' << y;
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderClickTest, ComparesWithTheLastClickWrittenOnly) {
  begin();
  source.click(left);
  clock.advance(60ms);
  source.click(left); // dropped, so that the next one is 100 ms behind the last
  clock.advance(40ms);
  source.click(left);
  EXPECT_EQ(times(), (Times{0, 100}));
  source.click(right);
  source.click(left); // the last one was of another button
  EXPECT_EQ(times(), (Times{0, 100, 100, 100}));
}

TEST_F(InteractionEventRecorderClickTest, ForgetsTheLastClickAtANewSegment) {
  begin();
  source.click();
  recorder->startSegment(10, std::nullopt);
  source.click();
  EXPECT_EQ(times(), (Times{0, 10}));
}

TEST_F(InteractionEventRecorderClickTest, SkipsClicksOutsideTheCapture) {
  for (const bool byPolling : {false, true}) {
    std::filesystem::remove(path);
    source.muteMonitors(byPolling);
    begin();
    source.moveTo(1101, 300);
    source.click();
    scheduler.advance(99ms);
    source.moveTo(1100, 300);
    scheduler.advance(99ms); // seen already, and does not come back when the pointer does
    EXPECT_EQ(times(), Times{});
    source.click();
    scheduler.advance(99ms);
    EXPECT_EQ(times().size(), 1U);
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderClickTest, ReportsNoClickOfAPause) {
  for (const bool byPolling : {false, true}) {
    std::filesystem::remove(path);
    source.muteMonitors(byPolling);
    observe();
    source.click();
    scheduler.advance(1s);
    recorder->startSegment(0, std::nullopt);
    scheduler.advance(1s);
    recorder->pauseSegment();
    source.click(left);
    source.press(right);
    scheduler.advance(1s);
    source.click(other);
    recorder->startSegment(1000, std::nullopt);
    scheduler.advance(1s); // the right button is still held
    EXPECT_EQ(times(), Times{});
    source.release(right);
    scheduler.advance(1s);
    source.press(right);
    scheduler.advance(1s);
    EXPECT_EQ(buttons(), Buttons{right});
    source.release(right);
    recorder.reset();
  }
}

TEST_F(InteractionEventRecorderClickTest, TakesTheFirstReadingForTheStartWhenThereWasNone) {
  source.muteMonitors();
  source.silencePointer();
  source.press(left);
  begin();
  source.silencePointer(false);
  scheduler.advance(99ms);
  EXPECT_EQ(times(), Times{});
  source.click(right);
  scheduler.advance(99ms);
  EXPECT_EQ(buttons(), Buttons{right});
}

TEST_F(InteractionEventRecorderClickTest, CountsOverTheEndOfTheCounter) {
  class Counter final : public InteractionSource {
   public:
    std::optional<PointerState> pointer() override { return state; }
    bool isSecureInput() override { return false; }
    std::unique_ptr<InteractionMonitor> monitor(InteractionHandlers) override { return nullptr; }
    PointerState state = {.location = {100, 200}, .isDown = {}, .pressCount = {0xffffffff, 0, 0}};
  } counter;
  InteractionEventRecorder plain(setup, counter, clock, files, scheduler.queueFactory());
  plain.startObserving();
  plain.startSegment(0, std::nullopt);
  scheduler.advance(99ms);
  EXPECT_EQ(times(), Times{});
  counter.state.pressCount[0] = 0;
  scheduler.advance(99ms);
  EXPECT_EQ(buttons(), Buttons{left});
}

TEST_F(InteractionEventRecorderClickTest, StampsAPressThatIsToldLateWithItsOwnTime) {
  source.setDelay(MediaTime::milliseconds(30));
  begin();
  clock.advance(100ms);
  source.press(left);
  EXPECT_EQ(times(), Times{70});
  scheduler.advance(33ms);
  EXPECT_EQ(times(), Times{70});
}

TEST_F(InteractionEventRecorderClickTest, DropsAPressFromBeforeTheSegment) {
  observe();
  clock.advance(1s);
  recorder->startSegment(0, static_cast<std::uint64_t>((clock.elapsed() - 100ms).count()));
  const MediaTime start = clock.now();
  clock.advance(50ms);
  recorder->recordClick({left, {100, 200}, start - MediaTime::milliseconds(1)});
  EXPECT_EQ(times(), Times{});
  // This may be the segment's first moment in whole milliseconds, rounded down.
  recorder->recordClick({left, {100, 200}, start - MediaTime::nanoseconds(999'999)});
  EXPECT_EQ(times(), Times{99});
}

TEST_F(InteractionEventRecorderClickTest, StampsAPressOfUnknownTimeAtItsArrival) {
  begin();
  clock.advance(50ms);
  recorder->recordClick({left, {100, 200}, MediaTime()});
  clock.advance(100ms);
  recorder->recordClick({left, {100, 200}, clock.now() + MediaTime::milliseconds(900)}); // not yet
  EXPECT_EQ(times(), (Times{50, 150}));
}

TEST_F(InteractionEventRecorderClickTest, WritesNoClicksThatWereNotAskedFor) {
  setup.recordsClicks = false;
  setup.recordsCursor = true;
  begin();
  source.click();
  scheduler.advance(99ms);
  recorder->recordClick({left, {100, 200}, MediaTime()});
  EXPECT_EQ(times(), Times{});
  expectFinished();
}

} // namespace
} // namespace tessarin
