#pragma once

#include "Program.hpp"
#include "base/JsonDocument.hpp"
#include "support/PrivateDesktop.hpp"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// The data of a successful reply.
class Reply {
 public:
  explicit Reply(const ProgramResult& result) : document_(result.output) {
    EXPECT_EQ(result.exitStatus, 0) << result.output;
    EXPECT_TRUE(document_.root().member("ok")->boolean());
  }
  json::Value data() const { return *document_.root().member("data"); }

 private:
  json::Document document_;
};

// A desktop without a window manager, and the program on it.
class DesktopFixture : public testing::Test {
 protected:
  ProgramResult run(const std::vector<std::string>& arguments) const {
    return runProgram(arguments, {.display = desktop.display()});
  }

  std::string displayID() const {
    return Reply(run({"list"})).data().member("displays")->at(0).member("id")->string();
  }

  // The listed window of that id.
  static std::optional<json::Value> windowOf(const Reply& list, const std::string& id) {
    const json::Value windows = *list.data().member("windows");
    for (std::size_t i = 0; i < windows.arraySize(); ++i)
      if (windows.at(i).member("id")->string() == id)
        return windows.at(i);
    return std::nullopt;
  }

  PrivateDesktop desktop{{.width = 800, .height = 600}};
};

// A window of the test's own process, which is the parent of the program that it runs.
class OwnWindow {
 public:
  // Solid, at a place on the display; returns when the server has drawn it.
  OwnWindow(const std::string& display, std::int16_t x, std::int16_t y, std::uint16_t width,
            std::uint16_t height, std::uint32_t colour)
      : connection_(xcb_connect(display.c_str(), nullptr)), window_(xcb_generate_id(connection_)) {
    const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    xcb_create_window(connection_, screen->root_depth, window_, screen->root, x, y, width, height, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL, &colour);
    xcb_map_window(connection_, window_);
    std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
  }
  ~OwnWindow() { xcb_disconnect(connection_); }
  OwnWindow(const OwnWindow&) = delete;
  OwnWindow& operator=(const OwnWindow&) = delete;

  std::string id() const { return std::to_string(window_); }

 private:
  xcb_connection_t* connection_;
  xcb_window_t window_;
};

} // namespace tessarin
