#include "PanelInputFixture.hpp"

#include <chrono>
#include <csignal>

namespace tessarin {
namespace {

// Somebody else has the keyboard in the beginning.
class PanelKeyboard : public PanelInput {
 protected:
  void beginBesideAnother() {
    begin();
    other = std::make_unique<Neighbour>(desktop->display(), x11::PixelRect{300, 300, 100, 100});
    other->takeFocus();
  }
  // A panel is to be seen.
  void beginBesideAPanel() {
    beginBesideAnother();
    tested = shownPanel({100, 100, 80, 60});
  }
  // Which has been given the keyboard.
  void beginOnAPanel() {
    beginBesideAPanel();
    click();
    ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
    ASSERT_EQ(focus(), tested->id());
  }

  std::unique_ptr<Neighbour> other;
  std::unique_ptr<TestedPanel> tested;
};

constexpr std::uint8_t keyA = 38;
constexpr std::uint8_t keyControl = 37;
constexpr std::uint8_t keyLeft = 113;

TEST_F(PanelKeyboard, APressBringsTheKeyboardAndThePointersLeaveGivesItBack) {
  beginBesideAPanel();
  EXPECT_EQ(focus(), other->window()); // showing a panel takes nothing
  hands->moveTo(120, 130);
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  EXPECT_TRUE(isTold(*tested, {}));
  EXPECT_EQ(other->told(), Told{"key 38"});

  hands->press();
  hands->release();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  EXPECT_EQ(focus(), tested->id());
  tested->forget();
  hands->pressKey(keyLeft);
  hands->releaseKey(keyLeft);
  EXPECT_TRUE(isTold(*tested, {"key 105"}));
  EXPECT_EQ(other->told(), Told{"key 38"});

  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  EXPECT_TRUE(eventually([&] { return other->told() == Told{"key 38", "key 38"}; }));
}

TEST_F(PanelKeyboard, AShortcutBehindADragReachesWhoeverHadTheKeyboard) {
  beginBesideAPanel();
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
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  hands->releaseKey(keyControl);
  EXPECT_TRUE(eventually([&] { return other->told() == Told{"key 38"}; }));
  EXPECT_TRUE(isTold(*tested, {"key 29"}));
  hands->pressKey(keyLeft);
  hands->releaseKey(keyLeft);
  EXPECT_TRUE(eventually([&] { return other->told() == Told{"key 38", "key 113"}; }));
  // Another press brings it back.
  hands->press();
  hands->release();
  EXPECT_TRUE(eventually([&] { return focus() == tested->id(); }));
}

TEST_F(PanelKeyboard, BesideThePicturesRoundCornerAReleaseGivesTheKeyboardBack) {
  beginBesideAPanel();
  tested->setPicture(pictureOf(80, 60, [](int x, int) { return x < 40 ? 0xFF00FF00U : 0U; }));
  ASSERT_TRUE(becomes(160, 130, 0));
  hands->moveTo(120, 130);
  hands->press();
  hands->moveTo(160, 130);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 160,130"}));
  EXPECT_EQ(focus(), tested->id());
  hands->release();
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
}

TEST_F(PanelKeyboard, RepetitionsOfAKeyAreToldToo) {
  begin();
  tested = shownPanel({100, 100, 80, 60});
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
  beginBesideAPanel();
  hands->moveTo(120, 130);
  hands->press();
  hands->moveTo(10, 10);
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "drag 10,10"}));
  EXPECT_EQ(focus(), tested->id());
  hands->release();
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
}

TEST_F(PanelKeyboard, TheKeyboardIsNotTakenFromWhoeverGotItMeanwhile) {
  beginOnAPanel();
  Neighbour third(desktop->display(), {420, 300, 100, 100});
  third.takeFocus();
  hands->moveTo(10, 10);
  settle();
  EXPECT_EQ(focus(), third.window());
}

TEST_F(PanelKeyboard, TheKeyboardIsGivenBackToTheFirstOwnerThroughSeveralPanels) {
  beginBesideAnother();
  const auto left = shownPanel({100, 100, 80, 60});
  const auto right = shownPanel({180, 100, 80, 60});
  for (const auto& [x, panel] : {std::pair{120, &left}, std::pair{200, &right}}) {
    hands->moveTo(x, 130);
    hands->press();
    hands->release();
    ASSERT_TRUE(eventually([&] { return focus() == (*panel)->id(); }));
  }
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
}

TEST_F(PanelKeyboard, TheKeyboardComesBackWhenThePanelIsHiddenOrClosed) {
  beginOnAPanel();
  tested->setFrame({});
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
  tested->setFrame({100, 100, 80, 60});
  ASSERT_TRUE(becomes(110, 110, 0x00FF00));
  click();
  EXPECT_EQ(focus(), tested->id());
  tested.reset();
  EXPECT_TRUE(eventually([&] { return focus() == other->window(); }));
}

TEST_F(PanelKeyboard, AClosedPanelTakesTheKeyboardFromNobody) {
  beginOnAPanel();
  Neighbour third(desktop->display(), {420, 300, 100, 100});
  third.takeFocus();
  tested.reset();
  settle();
  EXPECT_EQ(focus(), third.window());
}

TEST_F(PanelKeyboard, APanelWithTheKeyboardIsClosedSoonThoughTheServerHangs) {
  beginOnAPanel();
  ASSERT_EQ(kill(desktop->serverPid(), SIGSTOP), 0);
  const auto before = std::chrono::steady_clock::now();
  tested.reset();
  const auto elapsed = std::chrono::steady_clock::now() - before;
  kill(desktop->serverPid(), SIGCONT);
  EXPECT_LT(elapsed, std::chrono::seconds(3));
  // The server may have read what was asked of it last, or else ends the window by itself.
  EXPECT_TRUE(eventually([&] {
    const auto now = focus();
    return now == other->window() || now == XCB_INPUT_FOCUS_POINTER_ROOT;
  }));
}

TEST_F(PanelKeyboard, TheKeyboardGoesToThePointerWhenItsOwnerIsGoneBeforeThePanel) {
  beginOnAPanel();
  other->destroy();
  tested.reset();
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

TEST_F(PanelKeyboard, TheKeyboardGoesToThePointerWhenItsOwnerIsGone) {
  beginOnAPanel();
  other->destroy();
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

// As a person who walks the windows by the keyboard may come to it.
TEST_F(PanelKeyboard, APanelThatWasGivenTheKeyboardUnaskedLeavesItToThePointer) {
  beginBesideAPanel();
  xcb_set_input_focus(hands->connection().get(), XCB_INPUT_FOCUS_POINTER_ROOT, tested->id(),
                      XCB_CURRENT_TIME);
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  EXPECT_EQ(focus(), tested->id());
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

TEST_F(PanelKeyboard, WorksUnderAWindowManager) {
  begin({.width = 640, .height = 480, .hasWindowManager = true, .hasCompositingManager = true});
  const auto client = desktop->client({"--at", "300,200", "--size", "200x150", "--colour", "ffff0000"});
  desktop->run({"xdotool", "windowactivate", "--sync", client->windowID()});
  const auto active = desktop->run({"xdotool", "getactivewindow"});
  const auto before = focus();
  tested = shownPanel({100, 100, 80, 60});
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
