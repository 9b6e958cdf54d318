#include "base/BackgroundTask.hpp"

#include "support/ManualQueue.hpp"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace tessarin {
namespace {

TEST(BackgroundTask, RunsOnItsOwnQueueWhileTheOwnerGoesOn) {
  std::promise<int> ofOwner;
  BackgroundTask<int> task(makeThreadQueue, "com.tessarin.test.task",
                           [&] { return ofOwner.get_future().get() + 1; });
  ofOwner.set_value(41);
  EXPECT_EQ(task.get(), 42);
  EXPECT_EQ(task.get(), 42) << "the result stays";
}

TEST(BackgroundTask, ThrowsWhatTheWorkThrew) {
  ManualClock clock;
  ManualScheduler scheduler(clock);
  BackgroundTask<int> task(scheduler.queueFactory(), "task",
                           []() -> int { throw std::runtime_error("broken"); });
  EXPECT_THROW(task.get(), std::runtime_error);
  EXPECT_EQ(scheduler.labels(), std::vector<std::string>{"task"});
}

TEST(BackgroundTask, IsWaitedForByItsDestructorWhichDropsAFailure) {
  bool hasRun = false;
  {
    const BackgroundTask<int> task(makeThreadQueue, "com.tessarin.test.task", [&]() -> int {
      hasRun = true;
      throw std::runtime_error("nobody asks");
    });
  }
  EXPECT_TRUE(hasRun);
}

} // namespace
} // namespace tessarin
