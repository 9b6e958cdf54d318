#include "PanelInputFixture.hpp"

#include <algorithm>

namespace tessarin {
namespace {

TEST_F(PanelInput, ADragIsToldFromPressToRelease) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  hands->moveTo(120, 130);
  settle();
  EXPECT_TRUE(isTold(*tested, {})); // motion without a button
  hands->press();
  EXPECT_TRUE(isTold(*tested, {"down 120,130"}));
  hands->moveTo(125, 131);
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 125,131"}));
  hands->moveTo(500, 400); // far beyond the panel, which stands still
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 125,131", "drag 500,400"}));
  hands->release();
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 125,131", "drag 500,400", "up"}));
  hands->moveTo(120, 130);
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 125,131", "drag 500,400", "up"}));
}

TEST_F(PanelInput, OtherButtonsAreNotTold) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  hands->moveTo(120, 130);
  for (const std::uint8_t button : {2, 3, 4, 5}) {
    hands->press(button);
    hands->moveTo(121, 130);
    hands->release(button);
  }
  EXPECT_TRUE(isTold(*tested, {}));
  hands->press(1);
  hands->press(3);
  hands->release(3);
  EXPECT_TRUE(isTold(*tested, {"down 121,130"}));
  hands->release(1);
  EXPECT_TRUE(isTold(*tested, {"down 121,130", "up"}));
}

TEST_F(PanelInput, OnlyTheNewestOfBunchedMotionIsTold) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  hands->moveTo(120, 130);
  hands->press();
  ASSERT_TRUE(isTold(*tested, {"down 120,130"}));
  mainThread.sync([&] {
    for (int x = 121; x < 180; ++x)
      hands->moveTo(x, 130);
    hands->release();
  });
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 179,130", "up"}));
}

TEST_F(PanelInput, AHandlerMayMoveThePanelWithThePointer) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  tested->onDrag([](Panel& self, const PointerLocation& at) {
    self.setFrame({at.x - 20, at.y - 30, 80, 60});
  });
  hands->moveTo(120, 130);
  hands->press();
  for (int step = 1; step <= 100; ++step)
    hands->moveTo(120 + step * 3, 130 + step);
  hands->release();
  settle();
  const auto told = tested->told();
  ASSERT_GE(told.size(), 3U);
  EXPECT_EQ(told.front(), "down 120,130");
  EXPECT_EQ(told.back(), "up");
  EXPECT_EQ(told[told.size() - 2], "drag 420,230");
  EXPECT_EQ(std::count(told.begin(), told.end(), "up"), 1);
  EXPECT_TRUE(becomes(400, 200, 0x00FF00));
  EXPECT_TRUE(becomes(399, 200, 0));
}

TEST_F(PanelInput, AHandlerMayMakePanels) {
  begin();
  constexpr int count = 20;
  std::vector<std::unique_ptr<Panel>> made; // on the main thread
  const auto tested = shownPanel({100, 100, 80, 60});
  const auto other = shownPanel({300, 300, 40, 40});
  tested->onDrag([&](Panel&, const PointerLocation&) {
    for (int i = 0; i < count; ++i) {
      made.push_back(
          factory->makePanel({.frame = {i * 20.0, 0, 20, 20}, .accessibilityLabel = "", .handlers = {}}));
      made.back()->setPicture(plainPicture(20, 20, 0xFF0000FF));
    }
  });
  hands->moveTo(120, 130);
  hands->press();
  hands->moveTo(125, 130);
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 125,130"}));
  EXPECT_TRUE(becomesLike({0, 0, count * 20, 20}, [](int, int) { return 0x0000FFU; }));
  hands->release();
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "drag 125,130", "up"}));
  mainThread.sync([&] { made.clear(); });
}

TEST_F(PanelInput, TheButtonIsTakenAwayWithTheWindow) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  hands->moveTo(120, 130);
  hands->press();
  ASSERT_TRUE(isTold(*tested, {"down 120,130"}));
  xcb_unmap_window(hands->connection().get(), tested->id());
  hands->connection().sync();
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  hands->release();
  EXPECT_TRUE(isTold(*tested, {"down 120,130", "up"}));
}

TEST_F(PanelInput, APanelThatIgnoresThePointerLetsItThrough) {
  begin();
  Neighbour beneath(desktop->display(), {0, 0, 400, 400});
  const auto tested = shownPanel({100, 100, 80, 60}, true);
  hands->moveTo(120, 130);
  hands->press();
  hands->release();
  EXPECT_TRUE(eventually([&] { return beneath.told() == Told{"button 1"}; }));
  EXPECT_TRUE(isTold(*tested, {}));

  const auto taking = shownPanel({100, 100, 80, 60});
  hands->press();
  hands->release();
  EXPECT_TRUE(isTold(*taking, {"down 120,130", "up"}));
  EXPECT_EQ(beneath.told(), Told{"button 1"});
}

TEST_F(PanelInput, BesideItsPictureThePointerReachesWhatLiesBeneath) {
  for (const bool hasCompositingManager : {false, true}) {
    begin({.width = 640, .height = 480, .hasCompositingManager = hasCompositingManager});
    Neighbour beneath(desktop->display(), {0, 0, 400, 400});
    const auto tested = shownPanel({100, 100, 80, 60});
    // Nothing, less than half, half and more.
    tested->setPicture(pictureOf(80, 60, [](int x, int) {
      return x < 20 ? 0U : x < 40 ? 0x7F007F00U : x < 60 ? 0x80008000U : 0xFF0000FFU;
    }));
    ASSERT_TRUE(becomes(170, 110, 0x0000FF));
    const auto clickAt = [&](int x) {
      hands->moveTo(x, 130);
      hands->press();
      hands->release();
    };
    clickAt(119);
    clickAt(139);
    EXPECT_TRUE(eventually([&] { return beneath.told() == Told{"button 1", "button 1"}; }));
    EXPECT_TRUE(isTold(*tested, {}));
    clickAt(140);
    clickAt(160);
    EXPECT_TRUE(isTold(*tested, {"down 140,130", "up", "down 160,130", "up"}));
    tested->setFrame({100, 100, 50, 60}); // the picture goes on beyond it
    clickAt(149);
    clickAt(150);
    EXPECT_TRUE(eventually([&] { return beneath.told() == Told{"button 1", "button 1", "button 1"}; }));
    EXPECT_TRUE(isTold(*tested, {"down 140,130", "up", "down 160,130", "up", "down 149,130", "up"}));
  }
}

} // namespace
} // namespace tessarin
