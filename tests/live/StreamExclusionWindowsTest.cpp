#include "live/StreamExclusionFixture.hpp"

// What windows and the screen do beneath a panel and in front of it.
namespace tessarin {
namespace {

using namespace std::chrono_literals;

TEST_F(StreamExclusion, ShowsWhatWindowsPaintThatComeAndMoveBeneathAndAboveAPanel) {
  start();
  open(photo);
  auto& host = open({"--style", "override", "--colour", "ffff0000", "--size", "300x200", "--at", "250,150"});
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  exclude(host.pid());
  ASSERT_TRUE(beginsWithout(panel));
  // Painted late by its client, and then wandering from beneath the panel to its front and away.
  auto& window = open({"--style", "override", "--paint", "text", "--size", "180x120", "--at", "220,110",
                       "--repaint-delay", "40"});
  panel.raise();
  std::this_thread::sleep_for(50ms);
  const auto appears = [&](const Pixels& content, int x, int y) {
    return receiver->becomes([&](const Pixels& pixels) {
      return bool(areSame(cut(pixels, x, y, content.width, content.height), content));
    });
  };
  panel.hide();
  host.command("unmap");
  std::this_thread::sleep_for(100ms);
  const auto content = cut(screen(), 220, 110, 180, 120);
  host.command("map");
  panel.show();
  EXPECT_TRUE(appears(content, 220, 110));
  window.command("move 260 140");
  EXPECT_TRUE(appears(content, 260, 140));
  window.command("raise");
  EXPECT_TRUE(appears(content, 260, 140));
  window.command("move 420 300");
  EXPECT_TRUE(appears(content, 420, 300));
  panel.raise();
  panel.move(430, 310);
  EXPECT_TRUE(appears(content, 420, 300));
  window.command("unmap");
  panel.hide();
  host.command("unmap");
  EXPECT_TRUE(becomesScreen());
  expectNoPanelAnywhere();
  for (const auto& delivery : receiver->deliveries()) {
    const auto& values = delivery.pixels.values;
    ASSERT_TRUE(std::none_of(values.begin(), values.end(), [](auto value) { return value == 0xFF0000; }));
  }
}

// Such windows show what was there before until their clients have painted them.
TEST_F(StreamExclusion, WaitsForWindowsWithoutABackgroundThatComeUpInFrontOfAPanel) {
  start();
  open(photo);
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  ASSERT_TRUE(beginsWithout(panel));
  auto& window = open({"--style", "override", "--paint", "text", "--size", "180x120", "--at", "220,110",
                       "--repaint-delay", "60"});
  const auto isShown = [&](const Pixels& pixels) { return pixels.at(290, 112) == 0xFCFCFC; };
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(receiver->becomes(isShown));
    window.command("unmap");
    EXPECT_TRUE(receiver->becomes([&](const Pixels& pixels) { return !isShown(pixels); }));
    window.command("map");
  }
  expectNoPanelAnywhere();
}

// Which is known only by waiting for a sixth of a second.
TEST_F(StreamExclusion, APictureThatHadToWaitForAWindowHasTheTimeAtWhichItWasTaken) {
  start();
  open({"--style", "override", "--paint", "counter", "--size", "320x200"});
  open({"--style", "override", "--colour", "ff204060", "--size", "200x150", "--at", "400,300"});
  PanelWindow panel(desktop->display(), {420, 320, 150, 100});
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(20));
  panel.show();
  const auto shown = receiver->count();
  ASSERT_TRUE(receiver->hasCome(shown + 30));
  stream->stopCapture();
  std::int64_t longestGap = 0;
  const auto deliveries = receiver->deliveries();
  for (std::size_t i = 1; i < deliveries.size(); ++i) {
    const auto age = std::chrono::nanoseconds(deliveries[i].arrival.time_since_epoch()).count() -
                     deliveries[i].time.convertedTo(MediaTime::nanosecondScale).value();
    EXPECT_LT(age / 1'000'000, 140) << "picture " << i;
    longestGap = std::max(longestGap, (deliveries[i].time - deliveries[i - 1].time).wholeMilliseconds());
  }
  EXPECT_GE(longestGap, 130); // there was such a picture
  expectNoPanelAnywhere();
}

TEST_F(StreamExclusion, LeavesAPanelOutAlsoWhenTheScreenIsRearranged) {
  start();
  open(photo);
  const auto plain = screen();
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  ASSERT_TRUE(beginsWithout(panel));
  desktop->run(
      {"xrandr", "--newmode", "small", "10", "320", "330", "340", "350", "240", "250", "260", "270"});
  desktop->run({"xrandr", "--addmode", "screen", "small"});
  desktop->run({"xrandr", "--output", "screen", "--mode", "small"});
  ASSERT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(400, 100) == 0; }));
  panel.move(230, 120);
  panel.repaint();
  desktop->run({"xrandr", "--output", "screen", "--mode", "640x481"});
  panel.move(400, 200);
  EXPECT_TRUE(receiver->becomes([&](const Pixels& pixels) { return bool(areSame(pixels, plain)); }));
  expectNoPanelAnywhere();
  for (const auto& delivery : receiver->deliveries()) {
    EXPECT_TRUE(areSame(cut(delivery.pixels, 0, 0, 320, 240), cut(plain, 0, 0, 320, 240)));
  }
}

} // namespace
} // namespace tessarin
