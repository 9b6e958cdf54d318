#include "modules/media/ReadinessObservers.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace tessarin::media {
namespace {

TEST(ReadinessObservers, callsAtOnceAndAtEachNotificationUntilTheEnd) {
  ReadinessObservers observers;
  int calls = 0;
  auto observation = observers.add([&] { ++calls; });
  EXPECT_EQ(calls, 1);
  observers.notify();
  EXPECT_EQ(calls, 2);
  observation.reset();
  observers.notify();
  EXPECT_EQ(calls, 2);
}

TEST(ReadinessObservers, letsAHandlerEndItsOwnObservation) {
  ReadinessObservers observers;
  std::unique_ptr<ReadinessObservation> observation;
  int calls = 0;
  observation = observers.add([&] {
    if (++calls == 2)
      observation.reset();
  });
  observers.notify();
  observers.notify();
  EXPECT_EQ(calls, 2);
}

TEST(ReadinessObservers, waitsForACallUnderWayBeforeAnObservationEnds) {
  ReadinessObservers observers;
  std::promise<void> entered;
  std::promise<void> mayLeave;
  std::atomic<bool> hasLeft = false;
  std::atomic<bool> isFirst = true;
  auto observation = observers.add([&] {
    if (isFirst.exchange(false))
      return;
    entered.set_value();
    mayLeave.get_future().wait();
    hasLeft = true;
  });
  std::thread notifier([&] { observers.notify(); });
  entered.get_future().wait();
  std::thread leaver([&] { mayLeave.set_value(); });
  observation.reset();
  EXPECT_TRUE(hasLeft);
  leaver.join();
  notifier.join();
}

} // namespace
} // namespace tessarin::media
