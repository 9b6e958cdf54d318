#pragma once

#include "backends/x11/Displays.hpp"

#include <vector>

namespace tessarin::x11 {

// A set of pixels of the root window as rectangles that don't overlap. Plain value.
class Region {
 public:
  Region() = default;
  explicit Region(const PixelRect& rectangle) { add(rectangle); }

  void add(const PixelRect& rectangle);
  void add(const Region& other);
  void subtract(const PixelRect& rectangle);
  void subtract(const Region& other);
  void moveBy(std::int32_t right, std::int32_t down);

  Region intersection(const PixelRect& rectangle) const;
  Region intersection(const Region& other) const;
  bool intersects(const PixelRect& rectangle) const;
  bool contains(const PixelRect& rectangle) const;

  bool isEmpty() const { return rectangles_.empty(); }
  PixelRect extents() const;
  const std::vector<PixelRect>& rectangles() const { return rectangles_; }

 private:
  std::vector<PixelRect> rectangles_;
};

// The smallest rectangle that holds both; an empty one adds nothing.
PixelRect enclosing(const PixelRect& a, const PixelRect& b);

} // namespace tessarin::x11
