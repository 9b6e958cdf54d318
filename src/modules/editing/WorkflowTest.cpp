#include "modules/editing/Workflow.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace tessarin::editing {
namespace {

TEST(BoundedLine, KeepsTheOrderAndNeverHoldsMoreThanItsBound) {
  Workflow workflow;
  BoundedLine<int> line(workflow, 3);
  std::atomic<int> pushed = 0;
  std::atomic<int> most = 0;
  std::atomic<int> popped = 0;
  {
    const std::jthread producer([&] {
      for (int i = 0; i < 1000; ++i) {
        line.push(i);
        ++pushed;
      }
      line.close();
    });
    for (int expected = 0; const auto item = line.pop(); ++expected) {
      EXPECT_EQ(*item, expected);
      most = std::max(most.load(), pushed.load() - popped.load());
      ++popped;
    }
  }
  EXPECT_EQ(popped, 1000);
  // What is held, what is being taken, and one that is on its way in.
  EXPECT_LE(most, 5);
  EXPECT_FALSE(line.pop());
}

TEST(Workflow, EndsEverybodyWithTheFirstFailure) {
  Workflow workflow;
  BoundedLine<int> empty(workflow, 1);
  BoundedLine<int> full(workflow, 1);
  EXPECT_TRUE(full.push(1));
  std::atomic<int> ended = 0;
  {
    const std::jthread popper([&] { ended += empty.pop() ? 0 : 1; });
    const std::jthread pusher([&] { ended += full.push(2) ? 0 : 1; });
    workflow.fail(std::make_exception_ptr(std::out_of_range("first")));
    workflow.fail(std::make_exception_ptr(std::length_error("second")));
  }
  EXPECT_EQ(ended, 2);
  EXPECT_TRUE(workflow.hasFailed());
  EXPECT_FALSE(full.pop());
  EXPECT_THROW(workflow.rethrow(), std::out_of_range);
}

} // namespace
} // namespace tessarin::editing
