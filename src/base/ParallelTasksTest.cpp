#include "base/ParallelTasks.hpp"

#include "support/ManualClock.hpp"
#include "support/ManualQueue.hpp"

#include <gtest/gtest.h>

#include <latch>
#include <stdexcept>

namespace tessarin {
namespace {

using Order = std::vector<std::string>;

class ParallelTasksTest : public ::testing::Test {
 protected:
  std::function<void()> note(const std::string& what) {
    return [this, what] { order.push_back(what); };
  }

  Order order;
  ManualClock clock;
  ManualScheduler scheduler{clock};
  ParallelTasks tasks{scheduler.queueFactory()};
};

TEST_F(ParallelTasksTest, AreAllWaitedForOnQueuesOfTheirOwn) {
  tasks.start("first", note("a"));
  tasks.start("second", note("b"));
  tasks.join();
  EXPECT_EQ(order, (Order{"a", "b"}));
  EXPECT_EQ(scheduler.labels(), (Order{"first", "second"}));
  tasks.join();
  EXPECT_EQ(order.size(), 2U) << "they are done";
}

TEST_F(ParallelTasksTest, RunAtTheSameTime) {
  ParallelTasks threads(makeThreadQueue);
  std::latch meeting(3);
  for (int i = 0; i < 3; ++i)
    threads.start("meeting", [&] { meeting.arrive_and_wait(); });
  threads.join();
  EXPECT_TRUE(meeting.try_wait());
}

TEST_F(ParallelTasksTest, EndWithTheFirstFailureInTheirOrderAndBeginNothingBehindIt) {
  tasks.start("first", note("a"));
  tasks.start("second", [] { throw std::out_of_range("second"); });
  tasks.start("third", note("c"));
  tasks.start("fourth", [] { throw std::logic_error("fourth"); });
  EXPECT_THROW(tasks.join(), std::out_of_range);
  EXPECT_EQ(order, Order{"a"});
  EXPECT_EQ(scheduler.pendingCount(), 0U);
}

TEST_F(ParallelTasksTest, WaitBehindAFailureForWhatIsUnderWay) {
  ParallelTasks threads(makeThreadQueue);
  std::latch begun(1);
  std::latch failed(1);
  std::atomic<bool> isDone = false;
  threads.start("failing", [&] {
    begun.wait();
    failed.count_down();
    throw std::out_of_range("");
  });
  threads.start("long", [&] {
    begun.count_down();
    failed.wait();
    isDone = true;
  });
  EXPECT_THROW(threads.join(), std::out_of_range);
  EXPECT_TRUE(isDone);
}

TEST_F(ParallelTasksTest, ThatNobodyJoinsDoNotBegin) {
  {
    ParallelTasks dropped(scheduler.queueFactory());
    dropped.start("dropped", note("a"));
  }
  EXPECT_EQ(order, Order{});
  EXPECT_EQ(scheduler.pendingCount(), 0U);
}

} // namespace
} // namespace tessarin
