#include "live/PanelWindow.hpp"
#include "live/StreamFixture.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

constexpr auto step = 16ms; // of motion, about 60 a second
constexpr int steps = 120;

bool isOfPanel(std::uint32_t value) {
  return value == (PanelWindow::colour & 0xFFFFFFU) || value == (PanelWindow::otherColour & 0xFFFFFFU);
}

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

class StreamExclusion : public Stream {
 protected:
  void exclude(std::int32_t process = PanelWindow::process()) {
    filter.excludedApplications.push_back({"", process, ""});
  }

  // Runs the motion, a step of it at a time: all of them take about two seconds.
  static void during(const std::function<void(int)>& motion, int count = steps) {
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
      motion(i);
      next += step;
      std::this_thread::sleep_until(next);
    }
  }

  // To and fro, to every side, and over the screen's edges.
  static void wander(PanelWindow& panel, int i) {
    const auto swing = [](int position, int range) { return std::abs(position % (2 * range) - range); };
    panel.move(swing(i * 11, 560) - 30, swing(i * 7 + 130, 420) - 25);
  }

  void expectNoPanelAnywhere() const {
    std::size_t index = 0;
    for (const auto& delivery : receiver->deliveries()) {
      const auto& values = delivery.pixels.values;
      ASSERT_TRUE(std::none_of(values.begin(), values.end(), isOfPanel)) << "picture " << index;
      ++index;
    }
  }

  // Also while a panel moves, pictures keep coming; the machine may be busy with other work.
  void expectNoLongGap() const {
    const auto deliveries = receiver->deliveries();
    for (std::size_t i = 1; i < deliveries.size(); ++i) {
      EXPECT_LT((deliveries[i].time - deliveries[i - 1].time).wholeMilliseconds(), 400) << "picture " << i;
    }
  }

  // The pictures of a still desktop are all the same one.
  void expectOnly(const Pixels& plain) const {
    std::size_t index = 0;
    for (const auto& delivery : receiver->deliveries()) {
      ASSERT_TRUE(areSame(delivery.pixels, plain)) << "picture " << index;
      ++index;
    }
    EXPECT_TRUE(receiver->isUnchangedAlike());
  }
};

TEST_F(StreamExclusion, MeetsNoChangeWhereAPanelIsPaintedOverAStillDesktop) {
  start();
  open(photo);
  const auto plain = screen();
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  panel.makeRound();
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
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
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
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
  open({"--style", "override", "--paint", "counter", "--size", "640x481"});
  PanelWindow panel(desktop->display(), {-30, 100, 192, 144});
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(2));
  during([&](int i) {
    wander(panel, i);
    panel.repaint();
  });
  stream->stopCapture();
  const auto deliveries = receiver->deliveries();
  EXPECT_GT(deliveries.size(), steps / 2U);
  expectNoLongGap();
  expectNoPanelAnywhere();
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
  badge.show(); // nothing of it is to be seen when the stream begins
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
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

TEST_F(StreamExclusion, ShowsWhatWindowsPaintThatComeAndMoveBeneathAndAboveAPanel) {
  start();
  open(photo);
  auto& host = open({"--style", "override", "--colour", "ffff0000", "--size", "300x200", "--at", "250,150"});
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  panel.show();
  exclude(host.pid());
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
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
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
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
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
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

// Under a compositing manager that throws shadows, and lets windows fade.
class StreamExclusionComposited : public StreamExclusion, public ::testing::WithParamInterface<Arguments> {
 protected:
  void compose() {
    manager = desktop->start(GetParam());
    desktop->waitFor("compositing-manager");
    std::this_thread::sleep_for(300ms); // some take the windows over only after they have said so
  }

  // What the screen shows once it has stopped changing.
  Pixels settledScreen() const {
    auto last = screen();
    for (int equal = 0; equal < 4;) {
      std::this_thread::sleep_for(50ms);
      auto now = screen();
      equal = areSame(now, last) ? equal + 1 : 0;
      last = std::move(now);
    }
    return last;
  }

  std::unique_ptr<ChildProcess> manager;
};

TEST_P(StreamExclusionComposited, NeverShowsAPanelOrItsShadowHoweverItComesAndMoves) {
  start();
  open(photo);
  compose();
  const auto plain = settledScreen();
  PanelWindow panel(desktop->display(), {200, 100, 192, 144}, false);
  panel.show();
  const auto shown = settledScreen();
  int beside = 0; // pixels that its shadow darkens
  for (int y = 0; y < screenHeight; ++y) {
    for (int x = 0; x < screenWidth; ++x) {
      const bool isInside = panel.place().intersection({x, y, 1, 1}) == x11::PixelRect{x, y, 1, 1};
      beside += !isInside && shown.at(x, y) != plain.at(x, y) ? 1 : 0;
    }
  }
  EXPECT_GT(beside, 500);
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  during([&](int) { panel.repaint(); }, steps / 2);
  EXPECT_EQ(receiver->count(), 1U);
  during([&](int i) { wander(panel, i); });
  for (int i = 0; i < 3; ++i) {
    panel.hide();
    std::this_thread::sleep_for(150ms);
    panel.resize(150 + 20 * i, 100);
    panel.move(100 + 50 * i, 200);
    panel.show();
    std::this_thread::sleep_for(150ms);
  }
  panel.hide();
  std::this_thread::sleep_for(1200ms); // to the last look at it, a second later
  expectOnly(plain);
  EXPECT_EQ(receiver->count(), 1U);
  EXPECT_TRUE(areSame(screen(), plain));
}

TEST_P(StreamExclusionComposited, NeverShowsAPanelThatIsDraggedOverAnAnimation) {
  start();
  open({"--style", "override", "--paint", "counter", "--size", "640x481"});
  compose();
  PanelWindow panel(desktop->display(), {-30, 100, 192, 144});
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(2));
  during([&](int i) {
    wander(panel, i);
    panel.repaint();
  });
  stream->stopCapture();
  EXPECT_GT(receiver->count(), steps / 3U);
  expectNoLongGap();
  expectNoPanelAnywhere();
}

TEST_P(StreamExclusionComposited, OutlastsTheCompositingManagersBeginningAndEnd) {
  start();
  open(photo);
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  const auto plain = screen();
  panel.show();
  exclude();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  const auto wanderLater = [&](int i) {
    if (i > 15) {
      wander(panel, i);
    }
  };
  for (int round = 0; round < 2; ++round) {
    compose();
    during(wanderLater, steps / 2);
    manager->end(round == 0 ? SIGTERM : SIGKILL);
    during(wanderLater, steps / 2);
  }
  expectNoPanelAnywhere();
  EXPECT_TRUE(receiver->becomes([&](const Pixels& pixels) { return bool(areSame(pixels, plain)); }));
}

INSTANTIATE_TEST_SUITE_P(Managers, StreamExclusionComposited,
                         ::testing::Values(Arguments{"xcompmgr", "-c"}, Arguments{"xcompmgr", "-c", "-f"},
                                           Arguments{"picom", "--config", "/dev/null", "--backend", "xrender",
                                                     "--shadow"}),
                         [](const auto& each) { return "Manager" + std::to_string(each.index); });

} // namespace
} // namespace tessarin
