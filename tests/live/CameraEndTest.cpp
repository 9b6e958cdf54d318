#include "live/CameraTesting.hpp"
#include "support/FailureOf.hpp"

#include <thread>

// How a camera's stream ends: by itself, by its owner, or before it has begun.
namespace tessarin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

class CameraEnd : public CameraTest {
 protected:
  // The error with which the call fails, for which it may take eight seconds.
  template<class Call> static std::optional<CaptureDeviceError> errorOf(const Call& call) {
    const auto begin = steady_clock::now();
    const auto error = failureOf<CaptureDeviceError>(call);
    if (error) {
      EXPECT_LT(steady_clock::now() - begin, seconds(8));
    }
    return error;
  }
};

TEST_F(CameraEnd, ComesAtOnceWhenItIsUnplugged) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(3));
  const auto begin = steady_clock::now();
  camera->unplug();
  EXPECT_TRUE(receiver.hasEnded());
  EXPECT_LT(steady_clock::now() - begin, seconds(1));
  std::this_thread::sleep_for(milliseconds(200));
  stream->stop();
  stream->stop();
  EXPECT_EQ(receiver.endCount(), 1);
  EXPECT_FALSE(receiver.isLate());
}

TEST_F(CameraEnd, ComesWhenTheServerDies) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(3));
  server_.killServer();
  EXPECT_TRUE(receiver.hasEnded());
  stream->stop();
  EXPECT_EQ(receiver.endCount(), 1);
  EXPECT_FALSE(receiver.isLate());
}

TEST_F(CameraEnd, OfOneIsNotThatOfAnother) {
  const auto first = plugIn({"--name", "first"});
  const auto second = plugIn({"--name", "second"});
  CameraReceiver one;
  CameraReceiver other;
  const auto oneStream = open(one, "first");
  const auto otherStream = open(other, "second");
  oneStream->start();
  otherStream->start();
  ASSERT_TRUE(one.hasCome(2));
  ASSERT_TRUE(other.hasCome(2));
  first->unplug();
  EXPECT_TRUE(one.hasEnded());
  const auto before = other.count();
  EXPECT_TRUE(other.hasCome(before + 5));
  EXPECT_EQ(other.endCount(), 0);
}

TEST_F(CameraEnd, ByTheOwnerTellsNothing) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(3));
  stream->stop();
  const auto count = receiver.count();
  camera->unplug();
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_EQ(receiver.count(), count);
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(CameraEnd, MayComeInEveryState) {
  const auto camera = plugIn();
  {
    CameraReceiver receiver;
    open(receiver)->stop();
    EXPECT_EQ(receiver.endCount(), 0);
  }
  for (int delay = 0; delay < 60; delay += 4) {
    CameraReceiver receiver;
    auto stream = open(receiver);
    stream->start();
    std::this_thread::sleep_for(milliseconds(delay));
    stream.reset();
    const auto count = receiver.count();
    std::this_thread::sleep_for(milliseconds(5));
    EXPECT_EQ(receiver.count(), count);
    EXPECT_EQ(receiver.endCount(), 0);
  }
}

TEST_F(CameraEnd, ComesOnceWhenUnpluggedWhileItIsStopped) {
  for (int delay = 0; delay < 8; ++delay) {
    const auto camera = plugIn({"--name", "camera-" + std::to_string(delay)});
    CameraReceiver receiver;
    const auto stream = open(receiver, "camera-" + std::to_string(delay));
    stream->start();
    ASSERT_TRUE(receiver.hasCome(1));
    camera->process().end(SIGKILL);
    std::this_thread::sleep_for(milliseconds(delay));
    stream->stop();
    const auto count = receiver.endCount();
    EXPECT_LE(count, 1);
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(receiver.endCount(), count) << "nothing is told behind stop()";
  }
}

// A large JPEG takes so long that the end nearly always comes while one is opened.
TEST_F(CameraEnd, MayComeWhileAPictureIsMade) {
  for (int delay = 0; delay < 30; delay += 3) {
    const auto name = "camera-" + std::to_string(delay);
    const auto camera = plugIn({"--name", name, "--offer", "mjpg,1920x1080,60"});
    CameraReceiver receiver;
    auto stream = open(receiver, name);
    stream->start();
    ASSERT_TRUE(receiver.hasCome(1));
    const bool isUnplugged = delay % 2 == 1;
    std::this_thread::sleep_for(milliseconds(delay));
    if (isUnplugged) {
      camera->unplug();
      EXPECT_TRUE(receiver.hasEnded());
    }
    stream.reset();
    EXPECT_EQ(receiver.endCount(), isUnplugged ? 1 : 0);
    for (const auto& delivery : receiver.deliveries()) {
      EXPECT_TRUE(delivery.number);
    }
  }
}

TEST_F(CameraEnd, IsThereBeforeTheBeginningWithoutACamera) {
  CameraReceiver receiver;
  EXPECT_EQ(errorOf([&] { open(receiver); }), CaptureDeviceError::unavailable);
  const auto camera = plugIn();
  EXPECT_EQ(errorOf([&] { open(receiver, "another"); }), CaptureDeviceError::unavailable);
  EXPECT_EQ(errorOf([&] { open(receiver, "test-camera"); }), std::nullopt);
}

TEST_F(CameraEnd, IsThereWhenUnpluggedBeforeTheStart) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  camera->unplug();
  EXPECT_EQ(errorOf([&] { stream->start(); }), CaptureDeviceError::unavailable);
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(CameraEnd, IsThereWhenTheServerDiedBeforeTheStart) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  server_.killServer();
  EXPECT_EQ(errorOf([&] { stream->start(); }), CaptureDeviceError::unavailable);
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(CameraEnd, IsThereWhenTheServerDoesNotAnswer) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  server_.stopAnswering();
  EXPECT_EQ(errorOf([&] { stream->start(); }), CaptureDeviceError::unavailable);
  server_.goOn();
  EXPECT_EQ(receiver.endCount(), 0);
}

// None of the formats is one of ours.
TEST_F(CameraEnd, IsThereWhenTheFormatIsUnknown) {
  const auto camera = plugIn({"--offer", "gray8,9000x9000,30"});
  CameraReceiver receiver;
  const auto stream = open(receiver);
  EXPECT_EQ(errorOf([&] { stream->start(); }), CaptureDeviceError::unavailable);
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(CameraEnd, IsFollowedByANewBeginningWithTheSameName) {
  auto camera = plugIn();
  CameraReceiver first;
  const auto stream = open(first);
  stream->start();
  ASSERT_TRUE(first.hasCome(1));
  camera->unplug();
  ASSERT_TRUE(first.hasEnded());
  camera = plugIn();
  EXPECT_EQ(first.endCount(), 1);
  const auto count = first.count();
  CameraReceiver second;
  const auto again = open(second, "test-camera");
  again->start();
  EXPECT_TRUE(second.hasCome(3));
  EXPECT_EQ(first.count(), count) << "the ended stream does not come to life again";
}

TEST_F(CameraEnd, IsFollowedByANewBeginningOnANewServer) {
  auto camera = plugIn();
  CameraReceiver first;
  const auto stream = open(first);
  stream->start();
  ASSERT_TRUE(first.hasCome(1));
  server_.killServer();
  ASSERT_TRUE(first.hasEnded());
  server_.restartServer();
  camera = plugIn();
  CameraReceiver second;
  const auto again = open(second);
  again->start();
  EXPECT_TRUE(second.hasCome(3));
  EXPECT_EQ(first.endCount(), 1);
}

} // namespace
} // namespace tessarin
