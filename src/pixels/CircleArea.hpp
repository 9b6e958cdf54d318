#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

// What shapes with round edges have in common: areas of pixels to all sides of a circle. Used by this room
// only.
namespace tessarin::pixels {

// A stretch of one direction.
struct Stretch {
  double from, to;
  double length() const { return std::max(to - from, 0.0); }
  Stretch within(const Stretch& other) const { return {std::max(from, other.from), std::min(to, other.to)}; }
};

// The area below the circle around the origin, from 0 to x.
inline double areaBelowCircle(double x, double radius) {
  const double height = std::sqrt(std::max(radius * radius - x * x, 0.0));
  return (x * height + radius * radius * std::asin(std::min(x / radius, 1.0))) / 2;
}

// How much of a box lies outside of the circle around the origin; no coordinate is negative.
inline double areaOutsideCircle(const Stretch& x, const Stretch& y, double radius) {
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

// The share of a pixel that is rounded away, not to be told apart from nothing.
inline constexpr double nothing = 1e-9;

inline std::uint8_t levelOf(double share) {
  return static_cast<std::uint8_t>(std::clamp(std::floor(share * 255 + 0.5 + nothing), 0.0, 255.0));
}

// Fills a line with the levels of shares that rise up to a stretch which is as full as the line can be, and
// fall behind it. What is outside of `reached` has none.
template<class AreaIn>
void coverLine(std::span<std::uint8_t> line, const Stretch& reached, double full, const AreaIn& areaIn) {
  const auto width = static_cast<double>(line.size());
  const auto begin = static_cast<std::int32_t>(std::clamp(std::floor(reached.from - nothing), 0.0, width));
  const auto end = static_cast<std::int32_t>(std::clamp(std::ceil(reached.to + nothing), 0.0, width));
  const auto setAndTell = [&](std::int32_t x) {
    const double area = areaIn(x);
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
