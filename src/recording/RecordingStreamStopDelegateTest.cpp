#include "recording/RecordingStreamStopDelegate.hpp"

#include <gtest/gtest.h>

#include <array>
#include <unistd.h>

namespace tessarin {
namespace {

class RecordingStreamStopDelegateTest : public ::testing::Test {
 protected:
  RecordingStreamStopDelegateTest() {
    EXPECT_EQ(::pipe(ends.data()), 0);
    EXPECT_EQ(::write(ends[1], "stop\n", 5), 5);
  }
  ~RecordingStreamStopDelegateTest() override {
    ::close(ends[0]);
    ::close(ends[1]);
  }

  std::array<int, 2> ends{-1, -1};
};

TEST_F(RecordingStreamStopDelegateTest, LeavesTheInputAloneWhileNothingEnds) {
  ControlInput input(ends[0]);
  const RecordingStreamStopDelegate delegate(input);
  EXPECT_FALSE(delegate.stoppedWithError());
  EXPECT_EQ(input.nextLine(), "stop");
}

TEST_F(RecordingStreamStopDelegateTest, EndsTheInputWithoutBlamingTheStream) {
  ControlInput input(ends[0]);
  RecordingStreamStopDelegate delegate(input);
  delegate.stopReading();
  delegate.stopReading();
  EXPECT_FALSE(delegate.stoppedWithError());
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST_F(RecordingStreamStopDelegateTest, RemembersThatTheStreamHasEndedByItself) {
  ControlInput input(ends[0]);
  RecordingStreamStopDelegate delegate(input);
  delegate.streamDidStopWithError();
  EXPECT_TRUE(delegate.stoppedWithError());
  delegate.stopReading();
  EXPECT_TRUE(delegate.stoppedWithError());
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

} // namespace
} // namespace tessarin
