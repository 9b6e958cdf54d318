#include "PanelFixture.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>

namespace tessarin {
namespace {

using Told = std::vector<std::string>;

// A window of somebody else, which notes what a person does with it.
class Neighbour {
 public:
  Neighbour(const std::string& display, const x11::PixelRect& place) : connection_(display) {
    window_ = xcb_generate_id(connection_.get());
    const std::uint32_t values[] = {connection_.screen().white_pixel, 1,
                                    XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_KEY_PRESS};
    xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window_, connection_.root(),
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                      static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    xcb_map_window(connection_.get(), window_);
    connection_.sync();
  }

  xcb_window_t window() const { return window_; }
  void takeFocus() {
    xcb_set_input_focus(connection_.get(), XCB_INPUT_FOCUS_PARENT, window_, XCB_CURRENT_TIME);
    connection_.sync();
  }
  void destroy() {
    xcb_destroy_window(connection_.get(), window_);
    connection_.sync();
  }
  // "button 1", "key 38".
  Told told() {
    connection_.sync();
    while (const auto event = connection_.pollEvent()) {
      const auto type = event->response_type & 0x7F;
      if (type == XCB_BUTTON_PRESS || type == XCB_KEY_PRESS)
        told_.push_back((type == XCB_KEY_PRESS ? "key " : "button ") +
                        std::to_string(reinterpret_cast<xcb_button_press_event_t&>(*event).detail));
    }
    return told_;
  }

 private:
  x11::Connection connection_;
  xcb_window_t window_;
  Told told_;
};

class PanelInput : public PanelFixture {
 protected:
  void begin(const PrivateDesktop::Options& options = {.width = 640, .height = 480}) {
    start(options);
    hands = std::make_unique<Hands>(desktop->display());
  }

  // Opaque, and on the screen.
  std::unique_ptr<TestedPanel> shownPanel(const RectDTO& frame, bool ignoresMouseEvents = false) {
    auto shown = panel(frame, ignoresMouseEvents);
    const auto size = shown->pixelSize();
    shown->setPicture(plainPicture(static_cast<int>(size.width), static_cast<int>(size.height), 0xFF00FF00));
    EXPECT_TRUE(becomes(static_cast<int>(frame.x), static_cast<int>(frame.y), 0x00FF00));
    return shown;
  }

  // The panel has been told no more than this once everything has come.
  ::testing::AssertionResult isTold(TestedPanel& tested, const Told& expected) {
    eventually([&] { return tested.told() == expected; });
    settle();
    const auto told = tested.told();
    if (told == expected)
      return ::testing::AssertionSuccess();
    auto failure = ::testing::AssertionFailure();
    for (const auto& each : told)
      failure << each << "; ";
    return failure;
  }

  // What the server has sent so far has been handled.
  void settle() {
    hands->connection().sync();
    for (int i = 0; i < 3; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      mainThread.sync([] {});
    }
  }

  // On a panel at (120, 130), which gives it the keyboard.
  void click() {
    hands->moveTo(10, 10);
    hands->moveTo(120, 130);
    hands->press();
    hands->release();
    settle();
  }

  xcb_window_t focus() {
    return hands->connection()
        .required(xcb_get_input_focus_reply, xcb_get_input_focus(hands->connection().get()))
        ->focus;
  }

  std::unique_ptr<Hands> hands;
};

constexpr std::uint8_t keyA = 38;

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
  EXPECT_EQ(told.front(), "down 120,130");
  EXPECT_EQ(told.back(), "up");
  EXPECT_EQ(told[told.size() - 2], "drag 420,230");
  EXPECT_EQ(std::count(told.begin(), told.end(), "up"), 1);
  EXPECT_TRUE(becomes(400, 200, 0x00FF00));
  EXPECT_TRUE(becomes(399, 200, 0));
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

TEST_F(PanelInput, APressBringsTheKeyboardAndThePointersLeaveGivesItBack) {
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
  for (const std::uint8_t keycode : {std::uint8_t{113}, keyA}) {
    hands->pressKey(keycode);
    hands->releaseKey(keycode);
  }
  EXPECT_TRUE(isTold(*tested, {"key 105", "key 30"}));
  EXPECT_EQ(other.told(), Told{"key 38"});

  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
  hands->pressKey(keyA);
  hands->releaseKey(keyA);
  EXPECT_TRUE(eventually([&] { return other.told() == Told{"key 38", "key 38"}; }));
}

TEST_F(PanelInput, RepetitionsOfAKeyAreToldToo) {
  begin();
  const auto tested = shownPanel({100, 100, 80, 60});
  click();
  ASSERT_TRUE(isTold(*tested, {"down 120,130", "up"}));
  tested->forget();
  hands->pressKey(113); // an arrow, which servers repeat after some 0.6 s
  EXPECT_TRUE(eventually([&] { return tested->told().size() >= 3; }));
  hands->releaseKey(113);
  for (const auto& each : tested->told())
    EXPECT_EQ(each, "key 105");
}

TEST_F(PanelInput, TheKeyboardStaysWhileTheButtonIsDownAndGoesWithItBeyondThePanel) {
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

TEST_F(PanelInput, TheKeyboardIsNotTakenFromWhoeverGotItMeanwhile) {
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

TEST_F(PanelInput, TheKeyboardIsGivenBackToTheFirstOwnerThroughSeveralPanels) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto left = shownPanel({100, 100, 80, 60});
  const auto right = shownPanel({180, 100, 80, 60});
  for (const int x : {120, 200}) {
    hands->moveTo(x, 130);
    hands->press();
    hands->release();
    settle();
  }
  EXPECT_EQ(focus(), right->id());
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == other.window(); }));
}

TEST_F(PanelInput, TheKeyboardComesBackWhenThePanelIsHiddenOrClosed) {
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

TEST_F(PanelInput, AClosedPanelTakesTheKeyboardFromNobody) {
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

TEST_F(PanelInput, APanelWithTheKeyboardIsClosedSoonThoughTheServerHangs) {
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
  // The server does not read what was asked of it last, and ends the window by itself.
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

TEST_F(PanelInput, TheKeyboardGoesToThePointerWhenItsOwnerIsGoneBeforeThePanel) {
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

TEST_F(PanelInput, TheKeyboardGoesToThePointerWhenItsOwnerIsGone) {
  begin();
  Neighbour other(desktop->display(), {300, 300, 100, 100});
  other.takeFocus();
  const auto tested = shownPanel({100, 100, 80, 60});
  click();
  other.destroy();
  hands->moveTo(10, 10);
  EXPECT_TRUE(eventually([&] { return focus() == XCB_INPUT_FOCUS_POINTER_ROOT; }));
}

TEST_F(PanelInput, WorksUnderAWindowManager) {
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
