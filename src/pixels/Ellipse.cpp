#include "pixels/Ellipse.hpp"

#include "pixels/CircleArea.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tessarin::pixels {

namespace {

// The part of a stretch that lies on one side of the centre, in radii of the ellipse from there.
Stretch inRadii(double from, double to, double center, double radius, bool isBefore) {
  const Stretch side = isBefore ? Stretch{center - to, center - from} : Stretch{from - center, to - center};
  return Stretch{side.from / radius, side.to / radius}.within({0, 1});
}

} // namespace

// Radius by radius an ellipse is a circle.
void Ellipse::cover(std::int32_t y, std::span<std::uint8_t> line) const {
  std::fill(line.begin(), line.end(), std::uint8_t{0});
  const double across = (right - left) / 2;
  const double along = (bottom - top) / 2;
  const double height = Stretch{static_cast<double>(y), y + 1.0}.within({top, bottom}).length();
  if (!(across > 0) || !(along > 0) || height <= 0)
    return;
  const double centerX = (left + right) / 2;
  const double centerY = (top + bottom) / 2;
  const Stretch upper = inRadii(y, y + 1.0, centerY, along, true);
  const Stretch lower = inRadii(y, y + 1.0, centerY, along, false);
  const auto areaIn = [&](std::int32_t x) {
    double area = 0;
    for (const bool isBefore : {true, false}) {
      const Stretch aside = inRadii(x, x + 1.0, centerX, across, isBefore);
      for (const Stretch& stretch : {upper, lower})
        if (aside.length() > 0 && stretch.length() > 0)
          area += aside.length() * stretch.length() - areaOutsideCircle(aside, stretch, 1);
    }
    return area * across * along;
  };
  const double nearest =
      std::min({upper.length() > 0 ? upper.from : 1.0, lower.length() > 0 ? lower.from : 1.0});
  const double reach = across * std::sqrt(std::max(1 - nearest * nearest, 0.0));
  coverLine(line, {centerX - reach, centerX + reach}, height, areaIn);
}

} // namespace tessarin::pixels
