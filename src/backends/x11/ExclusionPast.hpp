#pragma once

#include "backends/x11/Displays.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::x11 {

// Where windows were that a compositing manager may still show there, since it paints after the fact and lets
// windows fade. Places that are left within a moment of each other are taken together, so that a window that
// is dragged about leaves a few rectangles behind. All times are host times in nanoseconds. Plain value.
class PastPlaces {
 public:
  void add(const PixelRect& place, std::int64_t now, std::int64_t until);
  // Whether a place has come to its end, and is forgotten.
  bool forget(std::int64_t now);
  std::vector<PixelRect> rectangles() const;

 private:
  struct Place {
    PixelRect rectangle;
    std::int64_t since = 0;
    std::int64_t until = 0;
  };
  std::vector<Place> places_;
};

} // namespace tessarin::x11
