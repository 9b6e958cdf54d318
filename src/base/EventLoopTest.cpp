#include "base/EventLoop.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

// Waits here are for events of the loop, never for time to pass: a failure shows as a hang, which the test
// program's time limit ends. Queues in general are tested through the thread queue.
namespace tessarin {
namespace {

using namespace std::chrono_literals;

class Loop final : public EventLoop {
 public:
  using EventLoop::end;
  using EventLoop::runUntilEnded;
};

class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe(ends_.data()), 0); }
  ~Pipe() {
    ::close(ends_[0]);
    closeWriteEnd();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int readEnd() const { return ends_[0]; }
  void write() { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
  void closeWriteEnd() {
    if (ends_[1] >= 0)
      ::close(ends_[1]);
    ends_[1] = -1;
  }
  // A byte, or nothing at the end. Waits.
  ssize_t read() {
    char byte = 0;
    return ::read(ends_[0], &byte, 1);
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

TEST(EventLoop, RunsOnTheThreadThatRunsIt) {
  Loop loop;
  std::thread::id ranOn;
  bool wasCurrent = false;
  loop.async([&] {
    ranOn = std::this_thread::get_id();
    wasCurrent = loop.isCurrent();
  });
  loop.end();
  EXPECT_FALSE(loop.isCurrent());
  loop.runUntilEnded();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_TRUE(wasCurrent);
  EXPECT_FALSE(loop.isCurrent());
}

TEST(EventLoop, CallsAWatchForAsLongAsItsDescriptorIsReadable) {
  Loop loop;
  Pipe pipe;
  for (int i = 0; i < 3; ++i)
    pipe.write();
  int calls = 0;
  std::unique_ptr<DescriptorWatch> watch;
  loop.async([&] {
    watch = loop.whenReadable(pipe.readEnd(), [&] {
      EXPECT_TRUE(loop.isCurrent());
      EXPECT_EQ(pipe.read(), 1);
      if (++calls == 3)
        pipe.write(); // becomes readable anew while its task runs
      if (calls == 4) {
        watch.reset();
        loop.end();
      }
    });
  });
  loop.runUntilEnded();
  EXPECT_EQ(calls, 4);
}

TEST(EventLoop, CallsAWatchAtTheEndOfItsDescriptorToo) {
  Loop loop;
  Pipe pipe;
  int calls = 0;
  std::unique_ptr<DescriptorWatch> watch;
  loop.async([&] {
    watch = loop.whenReadable(pipe.readEnd(), [&] {
      EXPECT_EQ(pipe.read(), 0);
      if (++calls == 3) { // left unanswered the end is told again
        watch.reset();
        loop.end();
      }
    });
    pipe.closeWriteEnd();
  });
  loop.runUntilEnded();
  EXPECT_EQ(calls, 3);
}

TEST(EventLoop, ADestroyedWatchIsSilentAndLeavesTheDescriptorOpen) {
  Loop loop;
  Pipe pipe;
  Pipe other;
  int calls = 0;
  std::unique_ptr<DescriptorWatch> watch;
  std::unique_ptr<DescriptorWatch> last;
  loop.async([&] {
    watch = loop.whenReadable(pipe.readEnd(), [&calls] { ++calls; });
    watch.reset();
    pipe.write();
    last = loop.whenReadable(other.readEnd(), [&] {
      last.reset();
      loop.end();
    });
    other.write();
  });
  loop.runUntilEnded();
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(pipe.read(), 1);
}

TEST(EventLoop, ADescriptorCanBeWatchedAgain) {
  Loop loop;
  Pipe pipe;
  pipe.write();
  int calls = 0;
  std::unique_ptr<DescriptorWatch> watch;
  loop.async([&] {
    watch = loop.whenReadable(pipe.readEnd(), [] { ADD_FAILURE(); });
    watch.reset();
    watch = loop.whenReadable(pipe.readEnd(), [&] {
      ++calls;
      watch.reset();
      loop.end();
    });
  });
  loop.runUntilEnded();
  EXPECT_EQ(calls, 1);
}

TEST(EventLoop, AWatchOfADescriptorThatIsReadableForeverHoldsNothingUp) {
  Loop loop;
  Pipe pipe;
  pipe.write();
  std::unique_ptr<DescriptorWatch> watch;
  std::unique_ptr<QueueTimer> timer;
  int calls = 0;
  loop.async([&] {
    watch = loop.whenReadable(pipe.readEnd(), [&calls] { ++calls; });
    timer = loop.after(5ms, [&] { loop.async([&] { loop.end(); }); });
  });
  loop.runUntilEnded();
  EXPECT_GE(calls, 2);
  watch.reset(); // outside the loop, which has ended
}

TEST(EventLoop, WatchesAndTimersMayOutliveIt) {
  Pipe pipe;
  std::unique_ptr<DescriptorWatch> watch;
  std::unique_ptr<QueueTimer> timer;
  {
    Loop loop;
    loop.async([&] {
      watch = loop.whenReadable(pipe.readEnd(), [] { ADD_FAILURE(); });
      timer = loop.every(1h, 1h, [] { ADD_FAILURE(); });
    });
    loop.end();
    loop.runUntilEnded();
  }
  timer->cancel();
  watch.reset();
  pipe.write();
  EXPECT_EQ(pipe.read(), 1);
}

TEST(EventLoop, SyncAfterTheEndRunsWhatIsQueuedWhereItIsCalled) {
  Loop loop;
  loop.end();
  loop.runUntilEnded();

  std::vector<int> order;
  loop.async([&] { order.push_back(1); });
  loop.sync([&] {
    EXPECT_TRUE(loop.isCurrent());
    loop.sync([&] { order.push_back(2); });
  });
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_THROW(loop.sync([] { throw std::out_of_range("from the task"); }), std::out_of_range);
}

TEST(EventLoop, SyncNeverHangsHoweverItMeetsTheEnd) {
  for (int round = 0; round < 300; ++round) {
    Loop loop;
    int count = 0; // confined to the loop
    {
      std::vector<std::jthread> callers;
      for (int caller = 0; caller < 2; ++caller)
        callers.emplace_back([&] {
          for (int i = 0; i < 20; ++i)
            loop.sync([&count] { ++count; });
        });
      std::jthread ender([&] { loop.end(); });
      loop.runUntilEnded();
    }
    ASSERT_EQ(count, 40);
  }
}

} // namespace
} // namespace tessarin
