#pragma once

#include "editing/PixelGeometry.hpp"
#include "model/Geometry.hpp"

// The angle rule of CSS linear gradients (CSS Images Module Level 3, "linear-gradient()"). Pure, any thread.
namespace tessarin::CSSGradientGeometry {

struct Endpoints {
  PixelPoint start; // where the first colour is whole
  PixelPoint end;   // where the second one is

  bool operator==(const Endpoints&) const = default;
};

// The line through the middle of the rectangle at this angle, 0 upwards and 90 to the right, so long that the
// corners are the first and the last place with a whole colour.
Endpoints endpoints(double angleDegrees, const RectDTO& extent);

} // namespace tessarin::CSSGradientGeometry
