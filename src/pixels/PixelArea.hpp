#pragma once

#include "model/Geometry.hpp"
#include "pixels/Canvas.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace tessarin::pixels {

// Whole pixels of a picture, from `left` and `top` up to but without `right` and `bottom`. Plain value.
struct PixelArea {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;

  std::int32_t width() const { return right - left; }
  std::int32_t height() const { return bottom - top; }
  bool isEmpty() const { return left >= right || top >= bottom; }
  PixelArea intersection(const PixelArea& other) const {
    return {std::max(left, other.left), std::max(top, other.top), std::min(right, other.right),
            std::min(bottom, other.bottom)};
  }
  bool operator==(const PixelArea&) const = default;
};

inline PixelArea areaOf(const PictureView& view) {
  return {0, 0, view.width, view.height};
}
inline PixelArea areaOf(const Canvas& canvas) {
  return {0, 0, canvas.width, canvas.height};
}

// All pixels of a picture that the rectangle has a part of, so that what is to be hidden is hidden whole. Up
// to 1/1024 of a pixel is taken for what arithmetic adds. Empty for what is not finite, or outside.
inline PixelArea touchedPixels(const RectDTO& rect, std::int32_t width, std::int32_t height) {
  constexpr double little = 1.0 / 1024;
  const double right = rect.x + rect.width;
  const double bottom = rect.y + rect.height;
  if (!std::isfinite(right) || !std::isfinite(bottom) || !(rect.width > 0) || !(rect.height > 0))
    return {};
  const auto edge = [](double place, std::int32_t end) {
    return static_cast<std::int32_t>(std::clamp<double>(place, 0, end));
  };
  return {edge(std::floor(rect.x + little), width), edge(std::floor(rect.y + little), height),
          edge(std::ceil(right - little), width), edge(std::ceil(bottom - little), height)};
}

// A part of a picture; the area lies within it.
inline PictureView partOf(const PictureView& view, const PixelArea& area) {
  return {rowOf(view, area.top) + static_cast<std::ptrdiff_t>(area.left) * 4, area.width(), area.height(),
          view.stride, view.format};
}
inline Canvas partOf(const Canvas& canvas, const PixelArea& area) {
  return {canvas.row(area.top) + static_cast<std::ptrdiff_t>(area.left) * 4, area.width(), area.height(),
          canvas.stride, canvas.format};
}

} // namespace tessarin::pixels
