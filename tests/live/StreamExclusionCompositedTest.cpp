#include "live/StreamExclusionFixture.hpp"

#include <csignal>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

// Under a compositing manager that throws shadows, and lets windows fade.
class StreamExclusionComposited : public StreamExclusion, public ::testing::WithParamInterface<Arguments> {
 protected:
  void compose() {
    manager = desktop->start(GetParam());
    desktop->waitFor("compositing-manager");
    std::this_thread::sleep_for(300ms); // some take the windows over only after they have said so
  }

  // What the screen shows once it has stopped changing, for which it has ten seconds.
  Pixels settledScreen() const {
    auto last = screen();
    int equal = 0;
    for (int look = 0; look < 200 && equal < 4; ++look) {
      std::this_thread::sleep_for(50ms);
      auto now = screen();
      equal = areSame(now, last) ? equal + 1 : 0;
      last = std::move(now);
    }
    EXPECT_EQ(equal, 4) << "the screen keeps changing";
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
  open(animation);
  compose();
  dragOverAnAnimation();
  EXPECT_GT(receiver->count(), steps / 3U);
}

TEST_P(StreamExclusionComposited, OutlastsTheCompositingManagersBeginningAndEnd) {
  start();
  open(photo);
  PanelWindow panel(desktop->display(), {200, 100, 192, 144});
  const auto plain = screen();
  ASSERT_TRUE(beginsWithout(panel));
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
