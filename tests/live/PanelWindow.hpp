#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Displays.hpp"

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace tessarin {

// A small window of this process that floats over the desktop and lets the pointer through, with colours that
// no content of the tests has. One thread.
class PanelWindow {
 public:
  static constexpr std::uint32_t colour = 0xFFFF00FF;
  static constexpr std::uint32_t otherColour = 0xFFFF02FD;

  // Without an alpha channel, some compositing managers throw more of a shadow.
  PanelWindow(const std::string& display, const x11::PixelRect& place, bool hasAlpha = true)
      : connection_(display), place_(place), window_(xcb_generate_id(connection_.get())),
        graphics_(xcb_generate_id(connection_.get())) {
    auto* xcb = connection_.get();
    const auto& screen = connection_.screen();
    const auto visual = hasAlpha ? alphaVisual() : screen.root_visual;
    const auto colormap = xcb_generate_id(xcb);
    xcb_create_colormap(xcb, XCB_COLORMAP_ALLOC_NONE, colormap, connection_.root(), visual);
    const std::uint32_t values[] = {colour, 0, 1, colormap};
    xcb_create_window(xcb, hasAlpha ? 32 : screen.root_depth, window_, connection_.root(),
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                      static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP,
                      values);
    xcb_create_gc(xcb, graphics_, window_, 0, nullptr);
    xcb_shape_rectangles(xcb, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, window_, 0, 0,
                         0, nullptr);
    connection_.sync();
  }

  // Whose window it is, as a stream is told.
  static std::int32_t process() { return getpid(); }
  const x11::PixelRect& place() const { return place_; }

  void show() {
    xcb_map_window(connection_.get(), window_);
    connection_.sync();
  }
  void hide() {
    xcb_unmap_window(connection_.get(), window_);
    connection_.sync();
  }

  void move(int x, int y) {
    place_.x = x;
    place_.y = y;
    const std::uint32_t to[] = {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)};
    xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, to);
    connection_.sync();
  }

  void resize(int width, int height) {
    place_.width = width;
    place_.height = height;
    const std::uint32_t to[] = {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
    xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, to);
    connection_.sync();
  }

  void raise() {
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    connection_.sync();
  }

  // Of two colours by turns, the whole of it.
  void repaint() {
    isOther_ = !isOther_;
    const std::uint32_t value = isOther_ ? otherColour : colour;
    xcb_change_gc(connection_.get(), graphics_, XCB_GC_FOREGROUND, &value);
    const xcb_rectangle_t whole{0, 0, static_cast<std::uint16_t>(place_.width),
                                static_cast<std::uint16_t>(place_.height)};
    xcb_poly_fill_rectangle(connection_.get(), window_, graphics_, 1, &whole);
    connection_.sync();
  }

  // Every row is a rectangle of its own, as in a round shape.
  void makeRound() {
    std::vector<xcb_rectangle_t> rows;
    const int radius = std::min(place_.width, place_.height) / 2;
    for (int y = 0; y < 2 * radius; ++y) {
      int inset = 0;
      const auto isOutside = [&](int x) {
        const int dx = 2 * x + 1 - 2 * radius;
        const int dy = 2 * y + 1 - 2 * radius;
        return dx * dx + dy * dy > 4 * radius * radius;
      };
      while (inset < radius && isOutside(inset)) {
        ++inset;
      }
      rows.push_back({static_cast<std::int16_t>(inset), static_cast<std::int16_t>(y),
                      static_cast<std::uint16_t>(2 * (radius - inset)), 1});
    }
    xcb_shape_rectangles(connection_.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                         XCB_CLIP_ORDERING_UNSORTED, window_, 0, 0, static_cast<std::uint32_t>(rows.size()),
                         rows.data());
    connection_.sync();
  }

  // Mapped, and yet nowhere to be seen.
  void makeEmpty() {
    xcb_shape_rectangles(connection_.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                         XCB_CLIP_ORDERING_UNSORTED, window_, 0, 0, 0, nullptr);
    connection_.sync();
  }

  void makeRectangular() {
    xcb_shape_mask(connection_.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, window_, 0, 0, XCB_NONE);
    connection_.sync();
  }

 private:
  xcb_visualid_t alphaVisual() const {
    for (auto depths = xcb_screen_allowed_depths_iterator(&connection_.screen()); depths.rem > 0;
         xcb_depth_next(&depths)) {
      if (depths.data->depth == 32) {
        return xcb_depth_visuals_iterator(depths.data).data->visual_id;
      }
    }
    return 0;
  }

  x11::Connection connection_;
  x11::PixelRect place_;
  xcb_window_t window_;
  xcb_gcontext_t graphics_;
  bool isOther_ = false;
};

} // namespace tessarin
