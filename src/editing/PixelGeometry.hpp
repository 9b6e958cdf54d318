#pragma once

#include "model/Geometry.hpp"
#include "model/VideoGeometry.hpp"

// Where things lie in a picture that is painted: pixels from its top left corner, y downwards, fractions of
// pixels included; a pixel's own corner has whole numbers. All of this room counts so. Plain values, any
// thread.
namespace tessarin {

struct PixelPoint {
  double x = 0;
  double y = 0;

  bool operator==(const PixelPoint&) const = default;
};

inline PixelPoint pixelPoint(const NormalizedVideoPointDTO& point, const SizeDTO& size) {
  return {static_cast<double>(size.width) * point.x, static_cast<double>(size.height) * point.y};
}

inline RectDTO pixelRect(const NormalizedVideoRectDTO& rect, const SizeDTO& size) {
  const auto width = static_cast<double>(size.width);
  const auto height = static_cast<double>(size.height);
  return {width * rect.x, height * rect.y, width * rect.width, height * rect.height};
}

inline PixelPoint centerOf(const RectDTO& rect) {
  return {rect.x + rect.width / 2, rect.y + rect.height / 2};
}

inline double shorterSideOf(const SizeDTO& size) {
  return static_cast<double>(size.width < size.height ? size.width : size.height);
}

} // namespace tessarin
