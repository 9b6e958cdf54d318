#pragma once

#include "model/Geometry.hpp"

namespace tessarin {

// A plane's affine map of row vectors: (x, y) becomes (a x + c y + tx, b x + d y + ty).
struct AffineTransform {
  double a = 1;
  double b = 0;
  double c = 0;
  double d = 1;
  double tx = 0;
  double ty = 0;

  static constexpr AffineTransform translation(double x, double y) { return {1, 0, 0, 1, x, y}; }

  // This transform first, and the other one after it.
  AffineTransform followedBy(const AffineTransform& other) const;
  // The smallest upright rectangle around the image of the rectangle; its sizes are not negative.
  RectDTO boundsOf(const RectDTO& rect) const;

  bool operator==(const AffineTransform&) const = default;
};

} // namespace tessarin
