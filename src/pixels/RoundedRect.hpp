#pragma once

#include <cstdint>
#include <span>

namespace tessarin::pixels {

// A rectangle with round corners, in pixels from the top left of what it lies on. Its edges may lie between
// pixels. The radius is at most half of the shorter side, so that a corner is a quarter of a circle. Plain
// value.
struct RoundedRect {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
  double radius = 0;

  // The same with every edge so far inside, and corners with the same centres as far as there are any.
  RoundedRect inset(double distance) const;

  // Which share of each pixel of line `y`, from the first column on, lies within: 0 to 255, by the exact
  // area, rounded to nearest.
  void cover(std::int32_t y, std::span<std::uint8_t> line) const;

  bool operator==(const RoundedRect&) const = default;
};

} // namespace tessarin::pixels
