#include "live/StreamExclusionFixture.hpp"

// Panels that are dragged about and change are in no picture.
namespace tessarin {
namespace {

using namespace std::chrono_literals;

// What the counter client paints beside its number; see tests/desktop.
std::uint32_t counterPixel(int x, int y, std::uint32_t number) {
  constexpr int travel = 256;
  const int phase = static_cast<int>(std::int64_t{number} * 4 % (2 * travel));
  const int column = x + (phase < travel ? phase : 2 * travel - phase);
  const auto red = static_cast<std::uint32_t>((column / 2 + y / 3) % 256);
  const auto green = static_cast<std::uint32_t>((column / 5 + 255 - y % 256) % 256);
  const std::uint32_t blue = ((column ^ y) & 64) != 0 ? 200 : 90;
  return red << 16U | green << 8U | blue;
}

TEST_F(StreamExclusion, MeetsNoChangeWhereAPanelIsPaintedOverAStillDesktop) {
  start();
  open(photo);
  const auto plain = screen();
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  panel.makeRound();
  ASSERT_TRUE(beginsWithout(panel));
  during([&](int i) {
    if (i % 2 == 0) {
      panel.repaint();
    }
  });
  EXPECT_EQ(receiver->count(), 1U);
  expectOnly(plain);
  EXPECT_GT(receiver->unchanged().size(), steps / 2U);
}

TEST_F(StreamExclusion, NeverShowsAPanelThatIsDraggedOverAStillDesktop) {
  start();
  open(photo);
  desktop->run({"xsetroot", "-mod", "5", "7", "-fg", "white", "-bg", "navy"});
  clients.front()->command("resize 400 300"); // the rest is the root's background
  open({"--style", "override", "--paint", "text", "--size", "300x200", "--at", "300,250", "--repaint-delay",
        "30"});
  const auto plain = screen();
  PanelWindow panel(desktop->display(), {-30, 100, 192, 144});
  ASSERT_TRUE(beginsWithout(panel));
  during([&](int i) {
    wander(panel, i);
    if (i == 40) {
      panel.makeRound();
    }
    if (i == 80) {
      panel.makeRectangular();
    }
  });
  EXPECT_EQ(receiver->count(), 1U);
  expectOnly(plain);
  EXPECT_GT(receiver->unchanged().size(), steps / 2U);
}

TEST_F(StreamExclusion, NeverShowsAPanelThatIsDraggedOverAnAnimation) {
  start();
  open(animation);
  dragOverAnAnimation();
  const auto deliveries = receiver->deliveries();
  EXPECT_GT(deliveries.size(), steps / 2U);
  int torn = 0;
  for (const auto& delivery : deliveries) {
    ASSERT_TRUE(delivery.number);
    int wrong = 0;
    for (int y = frameCounter::height; y < screenHeight; ++y) {
      for (int x = 0; x < screenWidth; ++x) {
        wrong += delivery.pixels.at(x, y) == counterPixel(x, y, *delivery.number) ? 0 : 1;
      }
    }
    torn += wrong > 0 ? 1 : 0;
  }
  // The client paints a picture in three strokes, between which others are served on a busy machine.
  EXPECT_LE(torn, static_cast<int>(deliveries.size() / 20));
}

TEST_F(StreamExclusion, NeverShowsABadgeThatComesAndGoesInAllShapes) {
  start();
  open(photo);
  const auto plain = screen();
  PanelWindow badge(desktop->display(), {150, 380, 300, 60});
  badge.makeEmpty();
  ASSERT_TRUE(beginsWithout(badge)); // nothing of it is to be seen yet
  for (int round = 0; round < 6; ++round) {
    badge.makeRound();
    std::this_thread::sleep_for(40ms);
    badge.resize(200 + round * 20, 60 - round);
    badge.makeRectangular();
    std::this_thread::sleep_for(40ms);
    badge.move(150 - round * 30, 380 + round * 20);
    badge.hide();
    std::this_thread::sleep_for(40ms);
    badge.show();
    badge.repaint();
    std::this_thread::sleep_for(40ms);
    badge.makeEmpty();
    std::this_thread::sleep_for(40ms);
    badge.raise();
  }
  EXPECT_EQ(receiver->count(), 1U);
  expectOnly(plain);
}

TEST_F(StreamExclusion, ShowsNoPanelInAWindowsRecording) {
  start();
  auto& window = open({"--style", "override", "--paint", "photo", "--size", "300x200", "--at", "100,80"});
  const auto plain = cut(screen(), 100, 80, 300, 200);
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  panel.show();
  watch(window);
  configuration.sourceRect = {0, 0, 300, 200};
  configuration.width = 300;
  configuration.height = 200;
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  during([&](int i) {
    wander(panel, i);
    panel.repaint();
  });
  EXPECT_EQ(receiver->count(), 1U);
  expectOnly(plain);
}

} // namespace
} // namespace tessarin
