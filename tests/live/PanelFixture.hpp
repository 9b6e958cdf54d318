#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Panels.hpp"
#include "base/EventLoop.hpp"
#include "support/PrivateDesktop.hpp"

#include "StillTesting.hpp"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <xcb/xtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tessarin {

// A queue like the main thread's, on a thread of its own beside the test.
class MainThread final : public EventLoop {
 public:
  MainThread() : thread_([this] { runUntilEnded(); }) {}
  ~MainThread() override {
    end();
    thread_.join();
  }
  MainThread(const MainThread&) = delete;
  MainThread& operator=(const MainThread&) = delete;

  template<class Value> Value get(const std::function<Value()>& value) {
    Value result{};
    sync([&] { result = value(); });
    return result;
  }

 private:
  std::thread thread_;
};

// A picture of the colour that the function tells for each pixel, AARRGGBB and multiplied by alpha.
inline Picture pictureOf(int width, int height, const std::function<std::uint32_t(int, int)>& colour) {
  const auto pixels = std::make_shared<std::vector<std::uint32_t>>();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      pixels->push_back(colour(x, y));
  return {{reinterpret_cast<const std::uint8_t*>(pixels->data()), width, height, std::ptrdiff_t{width} * 4,
           PixelFormat::bgra8Premultiplied},
          pixels};
}

inline Picture plainPicture(int width, int height, std::uint32_t colour) {
  return pictureOf(width, height, [colour](int, int) { return colour; });
}

// A panel that lives on the main thread, and what its handlers were told.
class TestedPanel {
 public:
  TestedPanel(MainThread& mainThread, PanelFactory& factory, PanelSetup setup) : mainThread_(mainThread) {
    note(setup.handlers);
    mainThread_.sync([&] { panel_ = factory.makePanel(std::move(setup)); });
  }
  ~TestedPanel() {
    mainThread_.sync([&] { panel_.reset(); });
  }
  TestedPanel(const TestedPanel&) = delete;
  TestedPanel& operator=(const TestedPanel&) = delete;

  void setFrame(const RectDTO& frame) {
    mainThread_.sync([&] { panel_->setFrame(frame); });
  }
  void setPicture(const Picture& picture) {
    mainThread_.sync([&] { panel_->setPicture(picture); });
  }
  std::uint32_t id() {
    return mainThread_.get<std::uint32_t>([&] { return panel_->windowID(); });
  }
  SizeDTO pixelSize() {
    return mainThread_.get<SizeDTO>([&] { return panel_->pixelSize(); });
  }
  double backingScale() {
    return mainThread_.get<double>([&] { return panel_->backingScale(); });
  }
  // "down 10,20", "drag 11,20", "up", "key 105", which is the left arrow and the only key for the panel.
  std::vector<std::string> told() {
    return mainThread_.get<std::vector<std::string>>([&] { return told_; });
  }
  void forget() {
    mainThread_.sync([&] { told_.clear(); });
  }
  // Called with each motion of a drag, on the main thread.
  void onDrag(std::function<void(Panel&, const PointerLocation&)> handler) {
    mainThread_.sync([&] { onDrag_ = std::move(handler); });
  }

 private:
  static std::string text(const char* what, const PointerLocation& location) {
    char line[64];
    std::snprintf(line, sizeof line, "%s %g,%g", what, location.x, location.y);
    return line;
  }

  void note(PanelHandlers& handlers) {
    handlers.onMouseDown = [this](const PointerLocation& at) { told_.push_back(text("down", at)); };
    handlers.onMouseDragged = [this](const PointerLocation& at) {
      told_.push_back(text("drag", at));
      if (onDrag_)
        onDrag_(*panel_, at);
    };
    handlers.onMouseUp = [this] { told_.push_back("up"); };
    handlers.onKeyDown = [this](std::uint16_t code) {
      told_.push_back("key " + std::to_string(code));
      return code == KEY_LEFT;
    };
  }

  MainThread& mainThread_;
  // The rest belongs to the main thread.
  std::unique_ptr<Panel> panel_;
  std::vector<std::string> told_;
  std::function<void(Panel&, const PointerLocation&)> onDrag_;
};

// A person's hands, by the extension that tests have for it.
class Hands {
 public:
  explicit Hands(const std::string& display) : connection_(display) {}

  void moveTo(int x, int y) { fake(XCB_MOTION_NOTIFY, 0, x, y); }
  void press(std::uint8_t button = 1) { fake(XCB_BUTTON_PRESS, button, 0, 0); }
  void release(std::uint8_t button = 1) { fake(XCB_BUTTON_RELEASE, button, 0, 0); }
  void pressKey(std::uint8_t keycode) { fake(XCB_KEY_PRESS, keycode, 0, 0); }
  void releaseKey(std::uint8_t keycode) { fake(XCB_KEY_RELEASE, keycode, 0, 0); }
  x11::Connection& connection() { return connection_; }

 private:
  void fake(std::uint8_t type, std::uint8_t detail, int x, int y) {
    xcb_test_fake_input(connection_.get(), type, detail, XCB_CURRENT_TIME, connection_.root(),
                        static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
    connection_.sync();
  }

  x11::Connection connection_;
};

class PanelFixture : public ::testing::Test {
 protected:
  PanelFixture() { ignoreBrokenPipes(); }

  void start(const PrivateDesktop::Options& options = {.width = 640, .height = 480}) {
    desktop = std::make_unique<PrivateDesktop>(options);
    makeFactory();
  }
  void makeFactory() {
    server = std::make_shared<x11::DisplayServer>(desktop->display());
    factory = x11::makePanelFactory(server, mainThread);
  }

  std::unique_ptr<TestedPanel> panel(const RectDTO& frame, bool ignoresMouseEvents = false) {
    return std::make_unique<TestedPanel>(mainThread, *factory,
                                         PanelSetup{.frame = frame,
                                                    .accessibilityLabel = "Camera / \u6444\u50cf\u5934",
                                                    .ignoresMouseEvents = ignoresMouseEvents,
                                                    .handlers = {}});
  }

  std::uint32_t screenAt(int x, int y) const {
    return screenPixels(desktop->display(), {x, y, 1, 1}).at(0, 0);
  }
  ::testing::AssertionResult becomes(int x, int y, std::uint32_t colour) const {
    std::uint32_t found = 0;
    if (eventually([&] { return (found = screenAt(x, y)) == colour; }))
      return ::testing::AssertionSuccess();
    char line[80];
    std::snprintf(line, sizeof line, "%d,%d is %06x, not %06x", x, y, found, colour);
    return ::testing::AssertionFailure() << line;
  }
  // Where each pixel of the area is what the function says.
  ::testing::AssertionResult becomesLike(const x11::PixelRect& area,
                                         const std::function<std::uint32_t(int, int)>& colour) const {
    Pixels expected{area.width, area.height, {}};
    for (int y = 0; y < area.height; ++y)
      for (int x = 0; x < area.width; ++x)
        expected.values.push_back(colour(area.x + x, area.y + y));
    eventually([&] { return areSame(screenPixels(desktop->display(), area), expected) ? true : false; });
    return areSame(screenPixels(desktop->display(), area), expected);
  }

  MainThread mainThread;
  std::unique_ptr<PrivateDesktop> desktop;
  std::shared_ptr<x11::DisplayServer> server;
  std::unique_ptr<PanelFactory> factory;
};

} // namespace tessarin
