#include "pixels/RoundedRect.hpp"

#include "pixels/CircleArea.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tessarin::pixels {

namespace {

// A stretch as seen from the centres of the corners at its beginning and at its end, outwards positive, as
// far as it reaches into these corners.
struct FromCorners {
  Stretch atStart, atEnd;

  FromCorners(const Stretch& stretch, double start, double end, double radius)
      : atStart(Stretch{start + radius - stretch.to, start + radius - stretch.from}.within({0, radius})),
        atEnd(Stretch{stretch.from - (end - radius), stretch.to - (end - radius)}.within({0, radius})) {}
};

// The pixels of one line.
class Line {
 public:
  Line(const RoundedRect& rect, std::int32_t y)
      : rect_(rect), vertical_(Stretch{static_cast<double>(y), y + 1.0}.within({rect.top, rect.bottom})),
        corners_(vertical_, rect.top, rect.bottom, rect.radius) {}

  double height() const { return vertical_.length(); }

  // How far from the rectangle's sides the line begins and ends.
  double inset() const {
    const Stretch& along = corners_.atStart.length() > 0 ? corners_.atStart : corners_.atEnd;
    const double squared = rect_.radius * rect_.radius;
    return along.length() > 0 ? rect_.radius - std::sqrt(squared - along.from * along.from) : 0;
  }

  double areaIn(std::int32_t x) const {
    const Stretch horizontal = Stretch{static_cast<double>(x), x + 1.0}.within({rect_.left, rect_.right});
    double area = horizontal.length() * height();
    if (area == 0 || rect_.radius <= 0)
      return area;
    const FromCorners across(horizontal, rect_.left, rect_.right, rect_.radius);
    for (const Stretch& aside : {across.atStart, across.atEnd})
      for (const Stretch& along : {corners_.atStart, corners_.atEnd})
        area -= areaOutsideCircle(aside, along, rect_.radius);
    return area;
  }

 private:
  const RoundedRect& rect_;
  Stretch vertical_;
  FromCorners corners_;
};

} // namespace

RoundedRect RoundedRect::inset(double distance) const {
  return {left + distance, top + distance, right - distance, bottom - distance,
          std::max(radius - distance, 0.0)};
}

void RoundedRect::cover(std::int32_t y, std::span<std::uint8_t> line) const {
  std::fill(line.begin(), line.end(), std::uint8_t{0});
  const Line pixels(*this, y);
  const double full = pixels.height();
  if (full <= 0 || right <= left)
    return;
  coverLine(line, {left + pixels.inset(), right - pixels.inset()}, full,
            [&](std::int32_t x) { return pixels.areaIn(x); });
}

} // namespace tessarin::pixels
