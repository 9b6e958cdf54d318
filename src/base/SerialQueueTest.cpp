#include "base/SerialQueue.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <pthread.h>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

// Waits here are for events of the queue, never for time to pass: a failure shows as a hang, which the test
// program's time limit ends.
namespace tessarin {
namespace {

using namespace std::chrono_literals;

std::string nameOfCurrentThread() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

// Runs everything that the queue was handed so far.
void drain(SerialQueue& queue) {
  queue.sync([] {});
}

TEST(ThreadQueue, RunsTasksInTheOrderOfHandingOver) {
  const auto queue = makeThreadQueue("test");
  std::vector<int> order; // confined to the queue
  for (int i = 0; i < 1000; ++i)
    queue->async([&order, i] { order.push_back(i); });
  queue->sync([&order] { order.push_back(1000); });
  ASSERT_EQ(order.size(), 1001U);
  for (int i = 0; i <= 1000; ++i)
    EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(ThreadQueue, KeepsTheOrderOfATaskAndOfWhomItWoke) {
  const auto queue = makeThreadQueue("test");
  for (int round = 0; round < 200; ++round) {
    std::vector<int> order; // confined to the queue
    std::binary_semaphore handedOver(0);
    queue->async([&] {
      queue->async([&order] { order.push_back(1); });
      handedOver.release();
    });
    handedOver.acquire();
    queue->sync([&order] { order.push_back(2); });
    ASSERT_EQ(order, (std::vector<int>{1, 2}));
  }
}

TEST(ThreadQueue, RunsOneTaskAtATimeWhoeverHandsThemOver) {
  const auto queue = makeThreadQueue("test");
  int count = 0; // confined to the queue
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([&] {
        for (int i = 0; i < 250; ++i) {
          queue->async([&count] { ++count; });
          if (i % 50 == 0)
            queue->sync([&count] { ++count; });
        }
      });
  }
  drain(*queue);
  EXPECT_EQ(count, 4 * 255);
}

TEST(ThreadQueue, KnowsWhetherItIsCurrent) {
  const auto queue = makeThreadQueue("first");
  const auto other = makeThreadQueue("second");
  EXPECT_FALSE(queue->isCurrent());
  queue->sync([&] {
    EXPECT_TRUE(queue->isCurrent());
    EXPECT_FALSE(other->isCurrent());
  });
}

TEST(ThreadQueue, SyncOnItselfRunsAtOnce) {
  const auto queue = makeThreadQueue("test");
  std::vector<int> order;
  queue->sync([&] {
    queue->async([&order] { order.push_back(2); });
    queue->sync([&order] { order.push_back(1); });
  });
  drain(*queue);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(ThreadQueue, SyncThrowsWhatTheTaskThrows) {
  const auto queue = makeThreadQueue("test");
  EXPECT_THROW(queue->sync([] { throw std::out_of_range("from the task"); }), std::out_of_range);
  queue->sync(
      [&queue] { EXPECT_THROW(queue->sync([] { throw std::logic_error("inner"); }), std::logic_error); });
  bool ran = false;
  queue->sync([&ran] { ran = true; });
  EXPECT_TRUE(ran);
}

TEST(ThreadQueue, NamesItsThreadByTheEndOfTheLabel) {
  const auto nameOf = [](const std::string& label) {
    std::string name;
    makeThreadQueue(label)->sync([&name] { name = nameOfCurrentThread(); });
    return name;
  };
  EXPECT_EQ(nameOf("short"), "short");
  EXPECT_EQ(nameOf("com.example.camera.frames"), "frames");
  EXPECT_EQ(nameOf("com.example.exactly-fifteen"), "exactly-fifteen");
  EXPECT_EQ(nameOf("com.example.longer-than-fifteen"), "longer-than-fif");
}

TEST(ThreadQueue, TheDestructorRunsWhatIsQueuedAndWhatThatHandsOver) {
  std::vector<int> order;
  std::binary_semaphore mayGoOn(0);
  {
    const auto queue = makeThreadQueue("test");
    queue->async([&] { mayGoOn.acquire(); });
    queue->async([&, &target = *queue] {
      order.push_back(1);
      target.async([&] {
        order.push_back(3);
        target.async([&] { order.push_back(4); });
      });
    });
    queue->async([&] { order.push_back(2); });
    mayGoOn.release();
  }
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST(ThreadQueue, TheDestructorDropsTimers) {
  std::atomic<int> calls = 0;
  std::unique_ptr<QueueTimer> far;
  std::unique_ptr<QueueTimer> late;
  {
    const auto queue = makeThreadQueue("test");
    std::binary_semaphore mayGoOn(0);
    far = queue->after(1h, [&calls] { ++calls; });
    queue->async([&] { mayGoOn.acquire(); });
    // Set while the queue ends: neither may be called any more.
    queue->async([&, &target = *queue] { late = target.every(1h, 1h, [&calls] { ++calls; }); });
    mayGoOn.release();
  }
  EXPECT_EQ(calls, 0);
  far->cancel(); // harmless behind the queue's end
  late->cancel();
}

TEST(ThreadQueue, ATimerCallsOnceOnTheQueue) {
  const auto queue = makeThreadQueue("test");
  std::binary_semaphore called(0);
  int calls = 0; // confined to the queue
  bool wasOnQueue = false;
  const auto timer = queue->after(1ms, [&] {
    ++calls;
    wasOnQueue = queue->isCurrent();
    called.release();
  });
  called.acquire();
  queue->sync([&] {
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(wasOnQueue);
  });
}

TEST(ThreadQueue, ATimerIsNotEarly) {
  const auto queue = makeThreadQueue("test");
  std::binary_semaphore called(0);
  const auto start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point end;
  const auto timer = queue->after(20ms, [&] {
    end = std::chrono::steady_clock::now();
    called.release();
  });
  called.acquire();
  EXPECT_GE(end - start, 20ms);
}

TEST(ThreadQueue, TimersCallInTheOrderOfTheirTimes) {
  const auto queue = makeThreadQueue("test");
  std::latch called(3);
  std::vector<int> order; // confined to the queue
  std::vector<std::unique_ptr<QueueTimer>> timers;
  queue->sync([&] { // nothing fires before all are set
    for (const int delay : {3, 1, 2})
      timers.push_back(queue->after(std::chrono::milliseconds(10 * delay), [&, delay] {
        order.push_back(delay);
        called.count_down();
      }));
  });
  called.wait();
  queue->sync([&order] { EXPECT_EQ(order, (std::vector<int>{1, 2, 3})); });
}

TEST(ThreadQueue, ATimerWithoutDelayRunsOnTheQueueAllTheSame) {
  const auto queue = makeThreadQueue("test");
  std::binary_semaphore called(0);
  const auto timer = queue->after(-5ms, [&called] { called.release(); });
  called.acquire();
}

TEST(ThreadQueue, ARepeatingTimerGoesOnUntilItIsCancelledWithinItsOwnCall) {
  const auto queue = makeThreadQueue("test");
  std::binary_semaphore done(0);
  int calls = 0; // confined to the queue
  std::unique_ptr<QueueTimer> timer;
  queue->sync([&] {
    timer = queue->every(1ms, 1ms, [&] {
      if (++calls == 5) {
        timer->cancel();
        done.release();
      }
    });
  });
  done.acquire();
  // A later timer of the same delay would come behind a call that were still to come.
  std::binary_semaphore later(0);
  const auto after = queue->after(5ms, [&later] { later.release(); });
  later.acquire();
  queue->sync([&calls] { EXPECT_EQ(calls, 5); });
}

TEST(ThreadQueue, ATimerMayBeDestroyedWithinItsOwnCall) {
  const auto queue = makeThreadQueue("test");
  std::binary_semaphore done(0);
  const auto alive = std::make_shared<int>(7);
  std::unique_ptr<QueueTimer> timer;
  int seen = 0;
  queue->sync([&] {
    timer = queue->every(1ms, 1ms, [&, alive] {
      timer.reset();
      seen = *alive; // what the task holds lives on until it returns
      done.release();
    });
  });
  done.acquire();
  drain(*queue);
  EXPECT_EQ(seen, 7);
  EXPECT_EQ(alive.use_count(), 1);
}

TEST(ThreadQueue, CancellingOnTheQueuePreventsACallThatIsDueAlready) {
  const auto queue = makeThreadQueue("test");
  int calls = 0; // confined to the queue
  std::unique_ptr<QueueTimer> cancelled;
  std::unique_ptr<QueueTimer> destroyed;
  std::unique_ptr<QueueTimer> kept;
  std::binary_semaphore done(0);
  queue->sync([&] {
    cancelled = queue->after(0ms, [&calls] { ++calls; });
    destroyed = queue->after(0ms, [&calls] { ++calls; });
    kept = queue->after(0ms, [&done] { done.release(); });
    cancelled->cancel();
    destroyed.reset();
  });
  done.acquire();
  queue->sync([&calls] { EXPECT_EQ(calls, 0); });
}

TEST(ThreadQueue, CancellingReleasesWhatATaskHoldsWithTheTimer) {
  const auto queue = makeThreadQueue("test");
  const auto held = std::make_shared<int>(1);
  auto timer = queue->after(1h, [held] {});
  EXPECT_EQ(held.use_count(), 2);
  timer.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(ThreadQueue, ARepeatingTimerThatFallsBehindSkipsCalls) {
  const auto queue = makeThreadQueue("test");
  constexpr auto interval = 5ms;
  std::vector<std::chrono::steady_clock::time_point> calls; // confined to the queue
  std::binary_semaphore done(0);
  std::unique_ptr<QueueTimer> timer;
  std::chrono::steady_clock::time_point start;
  queue->sync([&] {
    start = std::chrono::steady_clock::now();
    timer = queue->every(interval, interval, [&] {
      calls.push_back(std::chrono::steady_clock::now());
      if (calls.size() == 1) // busy for ten intervals
        while (std::chrono::steady_clock::now() < start + 11 * interval) {
        }
      if (calls.size() == 4) {
        timer->cancel();
        done.release();
      }
    });
  });
  done.acquire();
  queue->sync([&] {
    // The missed calls do not come in a bunch: the next ones are at multiples of the interval again, so the
    // fourth call is at the thirteenth multiple or later.
    EXPECT_GE(calls[1], start + 11 * interval);
    EXPECT_GE(calls[2], start + 12 * interval);
    EXPECT_GE(calls[3], start + 13 * interval);
  });
}

TEST(ThreadQueue, TimersMayBeSetAndDroppedOnAnyThread) {
  std::atomic<int> calls = 0;
  std::vector<std::unique_ptr<QueueTimer>> survivors;
  std::mutex mutex;
  {
    const auto queue = makeThreadQueue("test");
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
      threads.emplace_back([&, thread] {
        for (int i = 0; i < 100; ++i) {
          auto timer = i % 2 == 0 ? queue->after(std::chrono::microseconds(i), [&calls] { ++calls; })
                                  : queue->every(0ms, std::chrono::microseconds(50), [&calls] { ++calls; });
          if (i % 3 == 0)
            timer->cancel();
          if (i % 10 == thread) {
            const std::lock_guard lock(mutex);
            survivors.push_back(std::move(timer));
          }
        }
      });
    threads.clear();
  }
  const int callsAtTheEnd = calls;
  survivors.clear();
  EXPECT_EQ(calls, callsAtTheEnd);
}

} // namespace
} // namespace tessarin
