#include "live/StreamFixture.hpp"

#include <algorithm>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

TEST_F(Stream, DeliversTheScreenAtOnceAndTellsApartWhatHasChanged) {
  start();
  auto& window = open(photo);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_TRUE(areSame(receiver->last().pixels, screen()));
  EXPECT_FALSE(receiver->hasCome(2, silence));
  // Meanwhile the same picture comes at every interval, or nearly so on a busy machine.
  const auto unchanged = receiver->unchanged();
  EXPECT_GT(unchanged.size(), static_cast<std::size_t>(silence / 1ms * 60 / 1000 / 2));
  EXPECT_TRUE(std::is_sorted(unchanged.begin(), unchanged.end()));
  EXPECT_TRUE(receiver->isUnchangedAlike());
  open({"--style", "override", "--colour", "ff123456", "--size", "33x17", "--at", "600,11"});
  EXPECT_TRUE(becomesScreen());
  // The same once more is no change, though it has been painted.
  const auto count = receiver->count();
  window.command("raise");
  window.command("raise");
  EXPECT_TRUE(becomesScreen());
  clients.back()->command("paint ff123456");
  EXPECT_FALSE(receiver->hasCome(count + 2, silence));
  const auto deliveries = receiver->deliveries();
  EXPECT_TRUE(std::is_sorted(deliveries.begin(), deliveries.end(),
                             [](const auto& a, const auto& b) { return a.time < b.time; }));
  stream->stopCapture();
  EXPECT_EQ(end->count(), 0);
}

TEST_F(Stream, DeliversEveryPictureOfAnAnimationOnceOnAnExactGrid) {
  start();
  open({"--style", "override", "--paint", "counter", "--size", "160x64"});
  receiver = std::make_shared<StreamReceiver>(false);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(120, 10s));
  stream->stopCapture();
  const auto deliveries = receiver->deliveries();
  int missed = 0;
  for (std::size_t i = 1; i < deliveries.size(); ++i) {
    const auto& before = deliveries[i - 1];
    const auto& now = deliveries[i];
    ASSERT_TRUE(now.number);
    ASSERT_GT(*now.number, *before.number);
    missed += static_cast<int>(*now.number - *before.number) - 1;
    // Whole intervals, to the nanosecond that the time is rounded to.
    const auto elapsed = (now.time - deliveries[0].time).convertedTo(MediaTime::nanosecondScale).value();
    const auto ticks = (elapsed * 60 + 500'000'000) / 1'000'000'000;
    EXPECT_LE(std::abs(elapsed - ticks * 1'000'000'000 / 60), 1);
    EXPECT_GT(now.time, before.time);
  }
  // Other work on the machine may hold up the animation or the stream; a grid that beats against the
  // animation would miss more.
  EXPECT_LE(missed, 60);
}

TEST_F(Stream, KeepsToTheFrameInterval) {
  start();
  open({"--style", "override", "--paint", "counter", "--size", "300x200"});
  receiver = std::make_shared<StreamReceiver>(false);
  configuration.minimumFrameInterval = MediaTime(1, 15);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(12));
  stream->stopCapture();
  const auto deliveries = receiver->deliveries();
  for (std::size_t i = 1; i < deliveries.size(); ++i) {
    EXPECT_GE((deliveries[i].time - deliveries[i - 1].time).convertedTo(1'000'000).value(), 66'666);
  }
}

TEST_F(Stream, GivesALaterOutputThePresentPictureAndARemovedOneNoMore) {
  start();
  auto& window = open(photo);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  auto later = std::make_shared<StreamReceiver>();
  stream->addScreenOutput(later, *queue);
  ASSERT_TRUE(later->hasCome(1));
  EXPECT_TRUE(areSame(later->last().pixels, screen()));
  EXPECT_GT(later->last().time, receiver->last().time);
  EXPECT_EQ(receiver->count(), 1U);

  stream->removeScreenOutput(receiver.get());
  queue->sync([] {});
  const auto count = receiver->count();
  window.command("paint ff00ff00");
  open({"--style", "override", "--size", "50x50"});
  EXPECT_TRUE(later->becomes([this](const Pixels& pixels) { return bool(areSame(pixels, screen())); }));
  EXPECT_EQ(receiver->count(), count);

  // During a pause nobody listens; then the picture is the present one.
  stream->removeScreenOutput(later.get());
  open({"--style", "override", "--size", "50x50", "--at", "300,300", "--colour", "ff998877"});
  auto resumed = std::make_shared<StreamReceiver>();
  stream->addScreenOutput(resumed, *queue);
  ASSERT_TRUE(resumed->hasCome(1));
  EXPECT_TRUE(areSame(resumed->deliveries()[0].pixels, screen()));
}

TEST_F(Stream, WaitsForReceiversThatHoldAllBuffers) {
  start();
  auto& window = open({"--style", "override", "--paint", "counter", "--size", "200x100"});
  configuration.queueDepth = 3;
  receiver->setHolding(true);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(3));
  EXPECT_FALSE(receiver->hasCome(4, silence));
  auto held = receiver->held();
  ASSERT_EQ(held.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) { // and nothing has been written over
    EXPECT_TRUE(areSame(pixelsOf(held[i].view), receiver->deliveries()[i].pixels));
  }
  EXPECT_NE(receiver->deliveries()[0].number, receiver->deliveries()[2].number);
  receiver->setHolding(false);
  EXPECT_FALSE(receiver->hasCome(4, 50ms)); // this test still holds them
  held.clear();
  EXPECT_TRUE(receiver->hasCome(20));
  // Pictures outlive the stream.
  receiver->setHolding(true);
  ASSERT_TRUE(receiver->hasCome(receiver->count() + 3));
  stream->stopCapture();
  stream.reset();
  queue->sync([] {});
  const auto left = receiver->held();
  ASSERT_FALSE(left.empty());
  EXPECT_TRUE(areSame(pixelsOf(left.back().view), receiver->last().pixels));
  EXPECT_TRUE(window.process().isRunning());
}

TEST_F(Stream, RefusesWhatItCannotShow) {
  start();
  filter.displayID = 0xFFFFFFF;
  EXPECT_THROW(factory->makeStream(filter, configuration, end), CaptureFailure);
  filter.displayID = firstDisplay(desktop->display());
  auto wrong = configuration;
  wrong.minimumFrameInterval = MediaTime();
  EXPECT_THROW(factory->makeStream(filter, wrong, end), CaptureFailure);
  wrong = configuration;
  wrong.sourceRect.width = 0;
  EXPECT_THROW(factory->makeStream(filter, wrong, end), CaptureFailure);
  wrong = configuration;
  wrong.queueDepth = 0;
  EXPECT_THROW(factory->makeStream(filter, wrong, end), CaptureFailure);
  stream = factory->makeStream(filter, configuration, end);
  stream->startCapture();
  EXPECT_THROW(stream->startCapture(), CaptureFailure);
  EXPECT_THROW(stream->addScreenOutput({}, *queue), CaptureFailure);
}

} // namespace
} // namespace tessarin
