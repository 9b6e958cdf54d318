#include "live/StreamFixture.hpp"

#include <csignal>
#include <thread>

namespace tessarin {
namespace {

TEST_F(Stream, TellsOnceThatTheServerIsLost) {
  start();
  open(photo);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  desktop->killServer();
  EXPECT_TRUE(end->hasCome());
  EXPECT_THROW(stream->stopCapture(), CaptureFailure);
  EXPECT_EQ(end->count(), 1);
  EXPECT_THROW(factory->makeStream(filter, configuration, end), CaptureFailure);
}

TEST_F(Stream, StopsAlsoWhenTheServerHangs) {
  start();
  open({"--style", "override", "--paint", "counter"});
  beginStream();
  ASSERT_TRUE(receiver->hasCome(3));
  kill(desktop->serverPid(), SIGSTOP);
  EXPECT_FALSE(receiver->hasCome(receiver->count() + 20, silence));
  const auto before = clock.now();
  stream->stopCapture();
  EXPECT_LT((clock.now() - before).wholeMilliseconds(), 3000);
  EXPECT_EQ(end->count(), 0);
  kill(desktop->serverPid(), SIGCONT);
}

TEST_F(Stream, OutlastsAServerThatHangsForAWhile) {
  start();
  open({"--style", "override", "--paint", "counter"});
  factory = x11::makeScreenStreamFactory(
      std::make_shared<x11::DisplayServer>(desktop->display(), std::chrono::milliseconds(100)), clock);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(3));
  kill(desktop->serverPid(), SIGSTOP);
  EXPECT_FALSE(receiver->hasCome(receiver->count() + 20, silence));
  // But none is begun.
  EXPECT_THROW(factory->makeStream(filter, configuration, end), CaptureFailure);
  kill(desktop->serverPid(), SIGCONT);
  EXPECT_TRUE(receiver->hasCome(receiver->count() + 20));
  EXPECT_EQ(end->count(), 0);
}

TEST_F(Stream, MayBeStoppedBySeveralThreadsAtOnce) {
  start();
  open(photo);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  kill(desktop->serverPid(), SIGSTOP);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([this] { EXPECT_NO_THROW(stream->stopCapture()); });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  kill(desktop->serverPid(), SIGCONT);
  EXPECT_EQ(end->count(), 0);
}

} // namespace
} // namespace tessarin
