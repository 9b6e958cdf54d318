#pragma once

#include <cstdint>
#include <span>

namespace tessarin::pixels {

// The ellipse that fills a rectangle, in pixels from the top left of what it lies on. Its edges may lie
// between pixels. Plain value.
struct Ellipse {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;

  // Which share of each pixel of line `y`, from the first column on, lies within: 0 to 255, by the exact
  // area, rounded to nearest.
  void cover(std::int32_t y, std::span<std::uint8_t> line) const;

  bool operator==(const Ellipse&) const = default;
};

} // namespace tessarin::pixels
