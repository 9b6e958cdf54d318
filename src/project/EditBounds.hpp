#pragma once

#include <algorithm>
#include <string_view>

// Bounds that several records of an edit share. Pure, any thread. A number that is not one lies in no bounds,
// and every bound here is finite.
namespace tessarin::editBounds {

// The next double above 1: what x + width may come to when both were rounded.
inline constexpr double roundedOne = 1.0000000000000002;
inline constexpr double smallestSide = 0.02;

constexpr bool isWithin(double value, double lowest, double highest) {
  return value >= lowest && value <= highest;
}

// Of a rectangle of fractions, crops included: not too small, and inside the frame.
template<class Rect> constexpr bool rectIsValid(const Rect& rect) {
  return rect.x >= 0 && rect.y >= 0 && rect.width >= smallestSide && rect.height >= smallestSide &&
         rect.x + rect.width <= roundedOne && rect.y + rect.height <= roundedOne;
}

template<class Point> constexpr bool pointIsValid(const Point& point) {
  return isWithin(point.x, 0, 1) && isWithin(point.y, 0, 1);
}

constexpr bool isHexadecimalDigit(char character) {
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

// "#rrggbb" or "#rrggbbaa", in either case.
constexpr bool colorIsValid(std::string_view color) {
  return (color.size() == 7 || color.size() == 9) && color[0] == '#' &&
         std::all_of(color.begin() + 1, color.end(), isHexadecimalDigit);
}

constexpr bool fontScaleIsValid(double scale) {
  return isWithin(scale, 0.02, 0.2);
}

} // namespace tessarin::editBounds
