#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Displays.hpp"
#include "pixels/Canvas.hpp"

#include <xcb/xfixes.h>
#include <xcb/xproto.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tessarin::x11 {

// The pointer as a person sees it. Confined to the connection's thread.
class Cursor {
 public:
  explicit Cursor(Connection& connection);

  // Asks for events of the pointer's motion and shape from now on.
  void observe();
  // Whether the event tells of a motion or a new shape.
  bool handle(const xcb_generic_event_t& event);

  // Asks for where it is and, when that may have changed, what it looks like; collect() takes the answer.
  void request();
  // Throws DesktopFailure.
  void collect();

  // Where its picture lies on the root window; empty when there is none to be seen.
  PixelRect bounds() const;
  // Lays it over pixels of the root window that begin at (left, top).
  void blendOver(const pixels::Canvas& canvas, std::int32_t left, std::int32_t top) const;

 private:
  void takeShape();
  void takeArrow();

  Connection& connection_;
  std::uint8_t inputOpcode_ = 0; // 0: no input extension
  bool isShapeKnown_ = false;
  std::optional<xcb_query_pointer_cookie_t> pointer_;
  std::optional<xcb_xfixes_get_cursor_image_cookie_t> image_;
  std::int32_t x_ = 0; // of its hot spot
  std::int32_t y_ = 0;
  std::int32_t hotX_ = 0;
  std::int32_t hotY_ = 0;
  std::int32_t width_ = 0;
  std::int32_t height_ = 0;
  std::vector<std::uint32_t> pixels_; // premultiplied
};

} // namespace tessarin::x11
