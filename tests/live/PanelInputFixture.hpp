#pragma once

#include "PanelFixture.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tessarin {

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

} // namespace tessarin
