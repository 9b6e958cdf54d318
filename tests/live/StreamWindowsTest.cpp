#include "live/StreamFixture.hpp"

#include <algorithm>

namespace tessarin {
namespace {

TEST_F(Stream, NeverShowsExcludedWindowsHoweverTheyComeAndMove) {
  start();
  auto& below = open({"--style", "override", "--colour", "ff0000ff", "--size", "300x300", "--at", "50,50"});
  const auto plain = screen();
  auto& host = open({"--style", "override", "--colour", "ffff0000", "--size", "200x150", "--at", "150,100"});
  filter.excludedApplications = {{"", host.pid(), ""}};
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_TRUE(areSame(receiver->last().pixels, plain));

  host.command("paint ffffff00");
  host.command("paint ffff0000");
  EXPECT_FALSE(receiver->hasCome(2, silence));

  below.command("paint ff00ff00"); // all but the parts in sight is covered
  EXPECT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(200, 150) == 0x00FF00; }));
  EXPECT_EQ(receiver->last().pixels.at(60, 60), 0x00FF00U);

  for (int step = 0; step < 30; ++step) {
    host.command("move " + std::to_string(10 + step * 9) + " " + std::to_string(20 + step * 5));
    if (step == 10) {
      host.command("cover"); // one more window of the same process
    }
    if (step == 20) {
      host.command("uncover");
    }
  }
  below.command("paint ff00ff01");
  EXPECT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(60, 60) == 0x00FF01; }));
  for (const auto& delivery : receiver->deliveries()) {
    for (const auto value : delivery.pixels.values) {
      ASSERT_TRUE(value != 0xFF0000 && value != 0xFFFF00 && value != 0x7F7F7F);
    }
  }
}

TEST_F(Stream, ShowsWhatHappensInFrontOfAnExcludedWindow) {
  start();
  open(photo);
  auto& host = open({"--style", "override", "--colour", "ffff0000", "--size", "300x300", "--at", "100,50"});
  auto& front = open({"--style", "override", "--colour", "ff0000ff", "--size", "80x60", "--at", "200,150"});
  filter.excludedApplications = {{"", host.pid(), ""}};
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_EQ(receiver->last().pixels.at(220, 170), 0x0000FFU);
  front.command("paint ff00ff00"); // with the excluded window all around it
  EXPECT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(220, 170) == 0x00FF00; }));
  host.command("paint ffffff00");
  EXPECT_FALSE(receiver->hasCome(receiver->count() + 1, silence));
}

TEST_F(Stream, FollowsAWindowUntilItIsClosed) {
  start();
  auto& window = open({"--style", "override", "--paint", "photo", "--size", "201x120", "--at", "-50,60"});
  auto& cover = open({"--style", "override", "--colour", "ffffffff", "--size", "640x481"});
  cover.command("raise");
  watch(window);
  configuration.sourceRect = {0, 0, 201, 120};
  configuration.width = 202;
  configuration.height = 120;
  beginStream();
  const auto isUniform = [](int width, int height, std::uint32_t colour) {
    return [=](const Pixels& pixels) {
      return pixels.width == width && pixels.height == height &&
             std::all_of(pixels.values.begin(), pixels.values.end(),
                         [=](auto value) { return value == colour; });
    };
  };
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_EQ(receiver->last().pixels.width, 202);
  EXPECT_FALSE(isUniform(202, 120, receiver->last().pixels.at(0, 0))(receiver->last().pixels));

  const auto count = receiver->count();
  window.command("move 100 100"); // the same picture elsewhere
  cover.command("paint ff333333");
  EXPECT_FALSE(receiver->hasCome(count + 1, silence));
  EXPECT_FALSE(receiver->unchanged().empty());
  window.command("resize 80 50");
  EXPECT_TRUE(
      receiver->becomes([](const Pixels& pixels) { return pixels.width == 80 && pixels.height == 50; }));
  window.command("unmap");
  const auto unmapped = receiver->count();
  EXPECT_FALSE(receiver->hasCome(unmapped + 1, silence));
  window.command("map");
  window.command("resize 60 40");
  EXPECT_TRUE(
      receiver->becomes([](const Pixels& pixels) { return pixels.width == 60 && pixels.height == 40; }));
  EXPECT_EQ(end->count(), 0);

  window.command("close");
  EXPECT_TRUE(end->hasCome());
  EXPECT_THROW(stream->stopCapture(), CaptureFailure);
  EXPECT_EQ(end->count(), 1);
  EXPECT_THROW(stream->addScreenOutput(receiver, *queue), CaptureFailure);
  EXPECT_THROW(factory->makeStream(filter, configuration, end), CaptureFailure);
}

TEST_F(Stream, FollowsADecoratedWindowThatIsCoveredAndIconified) {
  start(true);
  auto& window = open({"--style", "decorated", "--paint", "counter", "--fps", "30", "--size", "200x100"});
  watch(window);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(3)) << receiver->count() << " came, " << end->count() << " ends";
  const auto first = receiver->last().pixels;
  EXPECT_GT(first.height, 110);
  open({"--style", "override", "--size", "640x481"});
  ASSERT_TRUE(receiver->hasCome(receiver->count() + 5));
  EXPECT_EQ(receiver->last().pixels.width, first.width);
  desktop->run({"xdotool", "windowminimize", window.windowID()});
  ASSERT_TRUE(eventually([&] {
    const auto count = receiver->count();
    return !receiver->hasCome(count + 1, silence);
  }));
  desktop->run({"xdotool", "windowmap", window.windowID()});
  EXPECT_TRUE(receiver->hasCome(receiver->count() + 5));
  window.command("close");
  EXPECT_TRUE(end->hasCome());
}

} // namespace
} // namespace tessarin
