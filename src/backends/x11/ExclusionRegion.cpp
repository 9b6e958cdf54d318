#include "backends/x11/ExclusionRegion.hpp"

#include <algorithm>

namespace tessarin::x11 {

namespace {

PixelRect spanning(std::int32_t left, std::int32_t top, std::int32_t right, std::int32_t bottom) {
  return {left, top, right - left, bottom - top};
}

void appendUnlessEmpty(std::vector<PixelRect>& out, const PixelRect& rectangle) {
  if (!rectangle.isEmpty()) {
    out.push_back(rectangle);
  }
}

// What of `from` lies outside of the hole: a band above, one below, and the sides between.
void appendDifference(std::vector<PixelRect>& out, const PixelRect& from, const PixelRect& hole) {
  const auto common = from.intersection(hole);
  if (common.isEmpty()) {
    out.push_back(from);
    return;
  }
  appendUnlessEmpty(out, spanning(from.x, from.y, from.right(), common.y));
  appendUnlessEmpty(out, spanning(from.x, common.y, common.x, common.bottom()));
  appendUnlessEmpty(out, spanning(common.right(), common.y, from.right(), common.bottom()));
  appendUnlessEmpty(out, spanning(from.x, common.bottom(), from.right(), from.bottom()));
}

} // namespace

void Region::add(const PixelRect& rectangle) {
  if (!rectangle.isEmpty()) {
    subtract(rectangle);
    rectangles_.push_back(rectangle);
  }
}

void Region::add(const Region& other) {
  for (const auto& rectangle : other.rectangles_) {
    add(rectangle);
  }
}

void Region::subtract(const PixelRect& rectangle) {
  if (!intersects(rectangle)) {
    return;
  }
  std::vector<PixelRect> rest;
  rest.reserve(rectangles_.size() + 3);
  for (const auto& mine : rectangles_) {
    appendDifference(rest, mine, rectangle);
  }
  rectangles_ = std::move(rest);
}

void Region::subtract(const Region& other) {
  for (const auto& rectangle : other.rectangles_) {
    subtract(rectangle);
  }
}

void Region::moveBy(std::int32_t right, std::int32_t down) {
  for (auto& mine : rectangles_) {
    mine.x += right;
    mine.y += down;
  }
}

Region Region::intersection(const PixelRect& rectangle) const {
  Region result;
  for (const auto& mine : rectangles_) {
    appendUnlessEmpty(result.rectangles_, mine.intersection(rectangle));
  }
  return result;
}

Region Region::intersection(const Region& other) const {
  Region result;
  for (const auto& theirs : other.rectangles_) {
    for (const auto& mine : rectangles_) {
      appendUnlessEmpty(result.rectangles_, mine.intersection(theirs));
    }
  }
  return result;
}

bool Region::intersects(const PixelRect& rectangle) const {
  return std::any_of(rectangles_.begin(), rectangles_.end(),
                     [&](const PixelRect& mine) { return !mine.intersection(rectangle).isEmpty(); });
}

bool Region::contains(const PixelRect& rectangle) const {
  Region outside(rectangle);
  outside.subtract(*this);
  return outside.isEmpty();
}

PixelRect Region::extents() const {
  PixelRect result;
  for (const auto& rectangle : rectangles_) {
    result = enclosing(result, rectangle);
  }
  return result;
}

PixelRect enclosing(const PixelRect& a, const PixelRect& b) {
  if (a.isEmpty()) {
    return b;
  }
  if (b.isEmpty()) {
    return a;
  }
  return spanning(std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.right(), b.right()),
                  std::max(a.bottom(), b.bottom()));
}

} // namespace tessarin::x11
