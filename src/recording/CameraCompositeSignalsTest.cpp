#include "recording/CameraCompositeSignals.hpp"

#include "support/ManualQueue.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

const NativeServiceError first{NativeErrorCode::captureFailed, "first"};
const NativeServiceError second{NativeErrorCode::outputFailed, "second"};

class CameraCompositeSignalsTest : public testing::Test {
 protected:
  std::optional<NativeServiceError> wait() {
    try {
      signals->waitUntilStarted(*queue, 5s);
      return std::nullopt;
    } catch (const NativeServiceError& error) {
      return error;
    }
  }

  ManualClock clock;
  ManualScheduler scheduler{clock};
  std::unique_ptr<SerialQueue> queue = scheduler.makeQueue("timers");
  std::shared_ptr<CameraCompositeSignals> signals = std::make_shared<CameraCompositeSignals>();
};

TEST_F(CameraCompositeSignalsTest, AWaitBehindTheStartReturnsAtOnce) {
  signals->didStart();
  EXPECT_EQ(wait(), std::nullopt);
  EXPECT_EQ(scheduler.timerCount(), 0u);
}

TEST_F(CameraCompositeSignalsTest, AWaitBehindAFailureThrowsTheFirstOne) {
  signals->didFail(first);
  signals->didFail(second);
  EXPECT_EQ(wait(), first);
  EXPECT_EQ(wait(), first) << "a failure stays for later callers";
}

TEST_F(CameraCompositeSignalsTest, AFailureBehindTheStartIsThrownToTheNextCaller) {
  signals->didStart();
  signals->didFail(first);
  EXPECT_EQ(wait(), first);
}

// Waits on a thread of its own; the timer that it sets tells when it has begun to wait.
class WaitingThread {
 public:
  explicit WaitingThread(std::function<void()> work) : thread_(std::move(work)) {}
  ~WaitingThread() { thread_.join(); }

 private:
  std::thread thread_;
};

TEST_F(CameraCompositeSignalsTest, AWaitEndsWithTheStart) {
  std::optional<NativeServiceError> outcome = second;
  {
    const WaitingThread waiting([&] { outcome = wait(); });
    while (scheduler.timerCount() == 0)
      std::this_thread::yield();
    signals->didStart();
  }
  EXPECT_EQ(outcome, std::nullopt);
  EXPECT_EQ(scheduler.timerCount(), 0u) << "the timeout ends with the wait";
}

TEST_F(CameraCompositeSignalsTest, AWaitEndsWithAFailure) {
  std::optional<NativeServiceError> outcome;
  {
    const WaitingThread waiting([&] { outcome = wait(); });
    while (scheduler.timerCount() == 0)
      std::this_thread::yield();
    signals->didFail(first);
  }
  EXPECT_EQ(outcome, first);
}

TEST_F(CameraCompositeSignalsTest, AWaitEndsAtItsTimeoutAndNotBefore) {
  std::optional<NativeServiceError> outcome;
  {
    const WaitingThread waiting([&] { outcome = wait(); });
    while (scheduler.timerCount() == 0)
      std::this_thread::yield();
    scheduler.advance(5s - 1ns);
    EXPECT_EQ(scheduler.timerCount(), 1u);
    scheduler.advance(1ns);
  }
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->code, NativeErrorCode::recordingScreenStalled);
  EXPECT_EQ(outcome->message,
            "Screen frames stopped being written. Recording sources were retained for recovery.");
  EXPECT_TRUE(outcome->recoverable);
  EXPECT_EQ(wait(), outcome);
}

} // namespace
} // namespace tessarin
