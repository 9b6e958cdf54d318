#pragma once

#include "backends/x11/Connection.hpp"
#include "model/Geometry.hpp"

#include <xcb/randr.h>

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tessarin::x11 {

// A rectangle in pixels of the root window.
struct PixelRect {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;

  std::int32_t right() const { return x + width; }
  std::int32_t bottom() const { return y + height; }
  bool isEmpty() const { return width <= 0 || height <= 0; }
  // Empty where they don't overlap.
  PixelRect intersection(const PixelRect& other) const;

  bool operator==(const PixelRect&) const = default;
};

// Pixels per point told by the server's resource text: Xft.dpi in units of 96, within 1 and 4; 1 when it is
// not set or no number. In single precision, in which the scale travels.
double scaleFromResources(std::string_view resources);

// Of windows and elements: the size in points gives the pixel size again when it is multiplied by `factor`
// and rounded up. That is the largest ratio of pixels to points of any display, which rounding may set a
// little above the scale.
RectDTO pointsFromPixels(const PixelRect& pixels, double scale, double factor);
// Of a display: the size in points gives the pixel size again when it is multiplied by the scale and rounded
// up, also for scales that no binary fraction expresses.
RectDTO displayPointsFromPixels(const PixelRect& pixels, double scale);

struct Display {
  std::uint32_t id = 0;
  PixelRect bounds;
  bool isMain = false; // exactly one is, when there is any
};

struct DisplayLayout {
  PixelRect root;   // the whole screen at its present size
  double scale = 1; // pixels per point, the same for all displays
  std::vector<Display> displays;
};

// Reads the monitors; the requests go out on construction, so that they share their round trip with others.
// Where the server knows no monitors the screen is the only display, under the number of its root window.
class DisplayQuery {
 public:
  explicit DisplayQuery(Connection& connection);
  // Once. Throws DesktopFailure.
  DisplayLayout result();

 private:
  Connection& connection_;
  xcb_get_geometry_cookie_t geometry_;
  xcb_get_property_cookie_t resources_;
  std::optional<xcb_randr_get_monitors_cookie_t> monitors_;
};

} // namespace tessarin::x11
