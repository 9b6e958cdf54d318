#include "support/ManualQueue.hpp"

#include <gtest/gtest.h>

#include <semaphore>
#include <stdexcept>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using Order = std::vector<std::string>;

class Manual : public testing::Test {
 protected:
  SerialQueue::Task note(const std::string& what) {
    return [this, what] { order.push_back(what); };
  }

  Order order; // outlives the queues, which run what is left at their end
  ManualClock clock;
  ManualScheduler scheduler{clock};
  std::unique_ptr<ManualQueue> first = scheduler.makeQueue("first");
  std::unique_ptr<ManualQueue> second = scheduler.makeQueue("second");
};

TEST_F(Manual, TheClockStandsStillUntilItIsTurned) {
  EXPECT_EQ(clock.now(), MediaTime::zero());
  clock.advance(1500ms);
  EXPECT_EQ(clock.now(), MediaTime(3, 2));
  clock.set(5s);
  EXPECT_EQ(clock.now(), MediaTime(5, 1));
  EXPECT_EQ(ManualClock(7s).elapsed(), 7s);
}

TEST_F(Manual, NothingRunsByItself) {
  first->async(note("a"));
  EXPECT_EQ(order, Order{});
  EXPECT_EQ(first->pendingCount(), 1U);
  EXPECT_EQ(scheduler.pendingCount(), 1U);
  scheduler.runPending();
  EXPECT_EQ(order, Order{"a"});
  EXPECT_EQ(scheduler.pendingCount(), 0U);
  EXPECT_FALSE(scheduler.runOne());
}

TEST_F(Manual, QueuesShareTheOrderOfHandingOver) {
  first->async([&] {
    order.push_back("a");
    first->async(note("d"));
  });
  second->async(note("b"));
  first->async(note("c"));
  scheduler.runPending();
  EXPECT_EQ(order, (Order{"a", "b", "c", "d"}));
}

TEST_F(Manual, OneQueueMayBeSteppedAlone) {
  first->async(note("a"));
  second->async(note("b"));
  first->async(note("c"));
  EXPECT_TRUE(second->runOne());
  EXPECT_FALSE(second->runOne());
  EXPECT_EQ(order, Order{"b"});
  first->runPending();
  EXPECT_EQ(order, (Order{"b", "a", "c"}));
}

TEST_F(Manual, SyncRunsWhatTheQueueWasHandedBefore) {
  first->async(note("a"));
  second->async(note("b"));
  first->sync([&] {
    EXPECT_TRUE(first->isCurrent());
    EXPECT_FALSE(second->isCurrent());
    first->async(note("d"));
    first->sync(note("c"));
  });
  EXPECT_FALSE(first->isCurrent());
  EXPECT_EQ(order, (Order{"a", "c"}));
  scheduler.runPending();
  EXPECT_EQ(order, (Order{"a", "c", "b", "d"}));
}

TEST_F(Manual, WhatATaskThrowsIsThrownWhereItIsStepped) {
  EXPECT_THROW(first->sync([] { throw std::out_of_range(""); }), std::out_of_range);
  first->async([] { throw std::logic_error(""); });
  EXPECT_THROW(scheduler.runPending(), std::logic_error);
  EXPECT_FALSE(first->isCurrent());
}

TEST_F(Manual, SyncFromAnotherThreadWaitsForTheTaskThatRuns) {
  std::binary_semaphore started(0);
  std::jthread other;
  first->async([&] {
    other = std::jthread([&] {
      started.release();
      first->sync(note("other"));
    });
    started.acquire();
    EXPECT_TRUE(first->isCurrent());
    order.push_back("running");
  });
  scheduler.runPending();
  other.join();
  EXPECT_EQ(order, (Order{"running", "other"}));
}

TEST_F(Manual, TimersFireInTheOrderOfTheirTimesWithTheClockAtEach) {
  std::vector<std::chrono::nanoseconds> times;
  const auto at = [&] { times.push_back(clock.elapsed()); };
  const auto late = first->after(30ms, at);
  const auto early = second->after(10ms, at);
  const auto middle = first->every(15ms, 20ms, at);
  scheduler.advance(9ms);
  EXPECT_TRUE(times.empty());
  scheduler.advance(1ms);
  EXPECT_EQ(times.size(), 1U);
  scheduler.advance(50ms);
  EXPECT_EQ(times, (std::vector<std::chrono::nanoseconds>{10ms, 15ms, 30ms, 35ms, 55ms}));
  EXPECT_EQ(clock.elapsed(), 60ms);
  EXPECT_EQ(scheduler.timerCount(), 1U);
}

TEST_F(Manual, TimersDueTogetherFireInTheOrderOfSetting) {
  const auto b = second->after(10ms, note("b"));
  const auto a = first->after(10ms, [&] {
    order.push_back("a");
    first->async(note("led to by a"));
  });
  const auto c = second->after(10ms, note("c"));
  scheduler.advance(10ms);
  EXPECT_EQ(order, (Order{"b", "a", "led to by a", "c"}));
}

TEST_F(Manual, ATimerSetByATimerFiresWithinTheSameStep) {
  std::unique_ptr<QueueTimer> inner;
  const auto outer = first->after(10ms, [&] { inner = first->after(5ms, note("inner")); });
  scheduler.advance(15ms);
  EXPECT_EQ(order, Order{"inner"});
}

TEST_F(Manual, ATimerWithoutDelayFiresAtTheNextStepOnly) {
  const auto timer = first->after(0ms, note("a"));
  scheduler.runPending();
  EXPECT_EQ(order, Order{});
  scheduler.advance(0ms);
  EXPECT_EQ(order, Order{"a"});
}

TEST_F(Manual, CancelledAndDestroyedTimersNeverFire) {
  const auto cancelled = first->after(10ms, note("cancelled"));
  auto destroyed = first->after(10ms, note("destroyed"));
  auto closing = scheduler.makeQueue("closing");
  const auto dropped = closing->after(10ms, note("dropped"));
  cancelled->cancel();
  destroyed.reset();
  closing.reset();
  scheduler.advance(20ms);
  EXPECT_EQ(order, Order{});
  EXPECT_EQ(scheduler.timerCount(), 0U);
}

TEST_F(Manual, ATimerMayBeDestroyedWithinItsOwnCall) {
  std::unique_ptr<QueueTimer> timer;
  timer = first->every(10ms, 10ms, [&] {
    order.push_back("once");
    timer.reset();
  });
  scheduler.advance(50ms);
  EXPECT_EQ(order, Order{"once"});
}

TEST_F(Manual, ARepeatingTimerThatFallsBehindSkips) {
  std::vector<std::chrono::nanoseconds> times;
  const auto timer = first->every(10ms, 10ms, [&] { times.push_back(clock.elapsed()); });
  clock.advance(35ms);
  scheduler.advance(10ms);
  EXPECT_EQ(times, (std::vector<std::chrono::nanoseconds>{35ms, 40ms}));
}

TEST_F(Manual, AQueueRunsItsTasksAtItsEnd) {
  first->async([&, &queue = *first] {
    order.push_back("a");
    queue.async(note("b"));
  });
  second->async(note("other"));
  first.reset();
  EXPECT_EQ(order, (Order{"a", "b"}));
}

TEST_F(Manual, TheFactoryMakesQueuesOfTheScheduler) {
  const QueueFactory factory = scheduler.queueFactory();
  const auto made = factory("made");
  made->async(note("a"));
  scheduler.runPending();
  EXPECT_EQ(order, Order{"a"});
  EXPECT_EQ(scheduler.labels(), (Order{"first", "second", "made"}));
}

} // namespace
} // namespace tessarin
