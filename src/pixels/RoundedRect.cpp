#include "pixels/RoundedRect.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tessarin::pixels {

namespace {

// A stretch of one direction.
struct Stretch {
  double from, to;
  double length() const { return std::max(to - from, 0.0); }
  Stretch within(const Stretch& other) const { return {std::max(from, other.from), std::min(to, other.to)}; }
};

// The area below the circle around the origin, from 0 to x.
double areaBelowCircle(double x, double radius) {
  const double height = std::sqrt(std::max(radius * radius - x * x, 0.0));
  return (x * height + radius * radius * std::asin(std::min(x / radius, 1.0))) / 2;
}

// How much of a box lies outside of the circle around the origin; no coordinate is negative.
double areaOutsideCircle(const Stretch& x, const Stretch& y, double radius) {
  const double area = x.length() * y.length();
  const double squared = radius * radius;
  if (area == 0 || x.to * x.to + y.to * y.to <= squared)
    return 0;
  if (x.from * x.from + y.from * y.from >= squared)
    return area;
  // Up to the first place the circle lies above the box, and from the second on below it.
  const double whole = std::clamp(std::sqrt(std::max(squared - y.to * y.to, 0.0)), x.from, x.to);
  const double none = std::clamp(std::sqrt(std::max(squared - y.from * y.from, 0.0)), x.from, x.to);
  const double inside = (whole - x.from) * y.length() + areaBelowCircle(none, radius) -
                        areaBelowCircle(whole, radius) - y.from * (none - whole);
  return std::clamp(area - inside, 0.0, area);
}

// A stretch as seen from the centres of the corners at its beginning and at its end, outwards positive, as
// far as it reaches into these corners.
struct FromCorners {
  Stretch atStart, atEnd;

  FromCorners(const Stretch& stretch, double start, double end, double radius)
      : atStart(Stretch{start + radius - stretch.to, start + radius - stretch.from}.within({0, radius})),
        atEnd(Stretch{stretch.from - (end - radius), stretch.to - (end - radius)}.within({0, radius})) {}
};

// The share of a pixel that is rounded away, not to be told apart from nothing.
constexpr double nothing = 1e-9;

std::uint8_t levelOf(double share) {
  return static_cast<std::uint8_t>(std::clamp(std::floor(share * 255 + 0.5 + nothing), 0.0, 255.0));
}

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

// The shares rise up to a stretch that is as full as the line can be, and fall behind it.
void RoundedRect::cover(std::int32_t y, std::span<std::uint8_t> line) const {
  std::fill(line.begin(), line.end(), std::uint8_t{0});
  const Line pixels(*this, y);
  const double full = pixels.height();
  if (full <= 0 || right <= left)
    return;
  const auto width = static_cast<double>(line.size());
  const auto begin =
      static_cast<std::int32_t>(std::clamp(std::floor(left + pixels.inset() - nothing), 0.0, width));
  const auto end =
      static_cast<std::int32_t>(std::clamp(std::ceil(right - pixels.inset() + nothing), 0.0, width));
  const auto setAndTell = [&](std::int32_t x) {
    const double area = pixels.areaIn(x);
    line[static_cast<std::size_t>(x)] = levelOf(area);
    return area >= full - nothing;
  };
  std::int32_t fullFrom = begin;
  while (fullFrom < end && !setAndTell(fullFrom))
    ++fullFrom;
  std::int32_t fullTo = end;
  while (fullTo > fullFrom && !setAndTell(fullTo - 1))
    --fullTo;
  std::fill(line.begin() + fullFrom, line.begin() + fullTo, levelOf(full));
}

} // namespace tessarin::pixels
