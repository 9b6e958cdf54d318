#include "editing/CSSGradientGeometry.hpp"

#include <cmath>
#include <numbers>

namespace tessarin::CSSGradientGeometry {

namespace {

// A right angle is none in radians: so little of a sine or cosine is none, too, and a line that runs straight
// across has both ends at one height.
double settled(double part) {
  constexpr double noise = 1e-12;
  return std::abs(part) < noise ? 0 : part;
}

} // namespace

Endpoints endpoints(double angleDegrees, const RectDTO& extent) {
  const double radians = angleDegrees * std::numbers::pi / 180;
  const double sine = settled(std::sin(radians));
  const double cosine = settled(std::cos(radians));
  const double length = std::abs(extent.width * sine) + std::abs(extent.height * cosine);
  const double dx = sine * length * 0.5;
  const double dy = cosine * length * 0.5; // upwards
  const PixelPoint middle = centerOf(extent);
  return {{middle.x - dx, middle.y + dy}, {middle.x + dx, middle.y - dy}};
}

} // namespace tessarin::CSSGradientGeometry
