#include "backends/x11/ExclusionPast.hpp"

#include "backends/x11/ExclusionRegion.hpp"

#include <algorithm>

namespace tessarin::x11 {

namespace {

constexpr std::int64_t moment = 100'000'000; // nanoseconds

} // namespace

void PastPlaces::add(const PixelRect& place, std::int64_t now, std::int64_t until) {
  for (auto& each : places_) {
    if (now - each.since <= moment && !each.rectangle.intersection(place).isEmpty()) {
      each.rectangle = enclosing(each.rectangle, place);
      each.until = std::max(each.until, until);
      return;
    }
  }
  places_.push_back({place, now, until});
}

bool PastPlaces::forget(std::int64_t now) {
  return std::erase_if(places_, [now](const Place& each) { return each.until <= now; }) > 0;
}

std::vector<PixelRect> PastPlaces::rectangles() const {
  std::vector<PixelRect> rectangles;
  for (const auto& each : places_) {
    rectangles.push_back(each.rectangle);
  }
  return rectangles;
}

} // namespace tessarin::x11
