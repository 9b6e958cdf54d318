#include "PanelInputFixture.hpp"

#include <chrono>
#include <csignal>

namespace tessarin {
namespace {

class PanelKeyboard : public PanelInput {};

constexpr std::uint8_t keyA = 38;
constexpr std::uint8_t keyControl = 37;
constexpr std::uint8_t keyLeft = 113;

TEST_F(PanelKeyboard, APressBringsTheKeyboardAndThePointersLeaveGivesItBack) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  EXPECT_EQ(focus(), other.window()); // showing a panel takes nothing
  hands->moveTo(120, 130);
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  EXPECT_TRUE(isTold(*tested, {}));
  EXPECT_EQ(other.told(), Told{"key 38"});

  hands->press();
  hands->release();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  EXPECT_EQ(focus(), tested->id());
  tested->forget();
  hands->pressKey(keyLeft);
  hands->releaseKey(keyLeft);
  EXPECT_TRUE(isTold(*tested, {"key 105"}));
  EXPECT_EQ(other.told(), Told{"key 38"});

  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  EXPECT_TRUE(eventually([&] { return other.told() == Told{"key 38", "key 38"}; }));
}

TEST_F(PanelKeyboard, AShortcutBehindADragReachesWhoeverHadTheKeyboard) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  hands->moveTo(120, 130);
  hands->press();
  hands->moveTo(125, 130);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 125,130"}));
  hands->pressKey(keyControl); // a drag keeps the keyboard, so that it can be called off
  hands->releaseKey(keyControl);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 125,130", "key 29"}));
  EXPECT_EQ(focus(), tested->id());
  hands->release();
  settle();
  EXPECT_EQ(focus(), tested->id());
  hands->pressKey(keyLeft);
  hands->releaseKey(keyLeft);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 125,130", "key 29", "up", "key 105"}));
  tested->forget();
  hands->pressKey(keyControl);
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  hands->releaseKey(keyControl);
  EXPECT_TRUE(eventually([&] { return other.told() == Told{"key 38"}; }));
  EXPECT_TRUE(isTold(*tested, {"key 29"}));
  hands->pressKey(keyLeft);
  hands->releaseKey(keyLeft);
  EXPECT_TRUE(eventually([&] { return other.told() == Told{"key 38", "key 113"}; }));
  // Another press brings it back.
  hands->press();
  hands->release();
  EXPECT_TRUE(eventually([&] { return focus() == tested->id(); }));
}

TEST_F(PanelKeyboard, BesideThePicturesRoundCornerAReleaseGivesTheKeyboardBack) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  tested->setPicture(pictureOf(80, 60, [](int x, int) { return x < 40 ? 0xFF00FF00U : 0U; }));
  ASSERT_TRUE(becomes(160, 130, 0));
  hands->moveTo(120, 130);
  hands->press();
  hands->moveTo(160, 130);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 160,130"}));
  EXPECT_EQ(focus(), tested->id());
  hands->release();
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
}

TEST_F(PanelKeyboard, RepetitionsOfAKeyAreToldToo) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  tested->forget();
  hands->pressKey(keyLeft); // which servers repeat after some 0.6 s
  EXPECT_TRUE(eventually([&] { return tested->told().size() >= 3; }));
  hands->releaseKey(keyLeft);
  for (const auto& each : tested->told())
    EXPECT_EQ(each, "key 105");
}

TEST_F(PanelKeyboard, TheKeyboardStaysWhileTheButtonIsDownAndGoesWithItBeyondThePanel) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  hands->moveTo(120, 130);
  hands->press();
  hands->moveTo(10, 10);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 10,10"}));
  EXPECT_EQ(focus(), tested->id());
  hands->release();
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
}

TEST_F(PanelKeyboard, TheKeyboardIsNotTakenFromWhoeverGotItMeanwhile) {
  begin();
  Neighbour first(desktop->display(), {300, 300, 100, 100});
  Neighbour second(desktop->display(), {420, 300, 100, 100});
  first.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  second.takeFocus();
  hands->moveTo(10, 10);
  settle();
  EXPECT_EQ(focus(), second.window());
}

TEST_F(PanelKeyboard, TheKeyboardIsGivenBackToTheFirstOwnerThroughSeveralPanels) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto left = shownPanel({100, 100, 80, 60});
  const auto right = shownPanel({180, 100, 80, 60});
  for (const auto& [x, panel] : {std::pair{120, &left}, std::pair{200, &right}}) {
    hands->moveTo(x, 130);
    hands->press();
    hands->release();
    ASSERT_TRUE(eventually([&] { return focus() == (*panel)->id(); }));
  }
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
}

TEST_F(PanelKeyboard, TheKeyboardComesBackWhenThePanelIsHiddenOrClosed) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  auto tested = shownPanel({100, 100, 80, 60});
  click();
  EXPECT_EQ(focus(), tested->id());
  tested->setFrame({});
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
  tested->setFrame({100, 100, 80, 60});
  ASSERT_TRUE(becomes(110, 110, 0x00FF00));
  click();
  EXPECT_EQ(focus(), tested->id());
  tested.reset();
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
}

TEST_F(PanelKeyboard, AClosedPanelTakesTheKeyboardFromNobody) {
  begin();
  Neighbour first(desktop->display(), {300, 300, 100, 100});
  Neighbour second(desktop->display(), {420, 300, 100, 100});
  first.takeFocus();
  auto tested = shownPanel({100, 100, 80, 60});
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  second.takeFocus();
  tested.reset();
  settle();
  EXPECT_EQ(focus(), second.window());
}

TEST_F(PanelKeyboard, APanelWithTheKeyboardIsClosedSoonThoughTheServerHangs) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  auto tested = shownPanel({100, 100, 80, 60});
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  EXPECT_EQ(focus(), tested->id());
  ASSERT_EQ(kill(desktop->serverPid(), SIGSTOP), 0);
  const auto before = std::chrono::steady_clock::now();
  tested.reset();
  const auto elapsed = std::chrono::steady_clock::now() - before;
  kill(desktop->serverPid(), SIGCONT);
  EXPECT_LT(elapsed, std::chrono::seconds(3));
  // The server may have read what was asked of it last, or else ends the window by itself.
  EXPECT_TRUE(eventually([&] {
    const auto now = focus();
    return now == other.window() || now == XCB_INPUT_FOCUS_POINTER_ROOT;
  }));
}

TEST_F(PanelKeyboard, TheKeyboardGoesToThePointerWhenItsOwnerIsGoneBeforeThePanel) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  auto tested = shownPanel({100, 100, 80, 60});
  click();
  EXPECT_EQ(focus(), tested->id());
  other.destroy();
  tested.reset();
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

TEST_F(PanelKeyboard, TheKeyboardGoesToThePointerWhenItsOwnerIsGone) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  click();
  other.destroy();
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

TEST_F(PanelKeyboard, WorksUnderAWindowManager) {
  begin({.width = 640, .height = 480, .hasWindowManager = true, .hasCompositingManager = true});
  const auto client = desktop->client({"--at", "300,200", "--size", "200x150", "--colour", "ffff0000"});
  desktop->run({"xdotool", "windowactivate", "--sync", client->windowID()});
  const auto active = desktop->run({"xdotool", "getactivewindow"});
  const auto before = focus();
  const auto tested = shownPanel({100, 100, 80, 60});
  EXPECT_EQ(desktop->run({"xdotool", "getactivewindow"}), active);
  EXPECT_EQ(focus(), before);
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  EXPECT_EQ(focus(), tested->id());
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == before; }));
}

} // namespace
} // namespace tessarin
