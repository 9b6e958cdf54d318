#include "model/Geometry.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin {

namespace {

constexpr std::uint64_t highestLayer = 2147483629;
constexpr double leastSideAboveNormal = 8; // points

// Layers of the desktop's own furniture: docks, the menu bar and its items.
constexpr bool isFurniture(std::int64_t layer) {
  return layer == 20 || layer == 24 || layer == 25;
}

double overlapArea(const RectDTO& a, const RectDTO& b) {
  const double width = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
  const double height = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
  return std::max(0.0, width) * std::max(0.0, height);
}

} // namespace

bool RectDTO::isFiniteAndPositive() const {
  return std::isfinite(x) && std::isfinite(y) && std::isfinite(width) && std::isfinite(height) && width > 0 &&
         height > 0;
}

std::optional<RectDTO> RectDTO::intersection(const RectDTO& other) const {
  const double left = std::max(x, other.x);
  const double top = std::max(y, other.y);
  const double right = std::min(x + width, other.x + other.width);
  const double bottom = std::min(y + height, other.y + other.height);
  if (!(left < right && top < bottom))
    return std::nullopt;
  return RectDTO{left, top, right - left, bottom - top};
}

bool CaptureWindowLayer::isEligible(std::int64_t layer, const RectDTO& frame) {
  // Taken as unsigned, every negative layer lies above the highest one.
  if (static_cast<std::uint64_t>(layer) > highestLayer || isFurniture(layer) || !frame.isFiniteAndPositive())
    return false;
  return layer == 0 || (frame.width >= leastSideAboveNormal && frame.height >= leastSideAboveNormal);
}

std::optional<std::string> WindowDisplayAssignment::displayID(const RectDTO& frame,
                                                              const std::vector<DisplayInfoDTO>& displays) {
  const DisplayInfoDTO* best = nullptr;
  double bestArea = 0;
  for (const DisplayInfoDTO& display : displays) {
    const double area = overlapArea(frame, display.framePoints);
    if (area > bestArea) {
      best = &display;
      bestArea = area;
    }
  }
  return best != nullptr ? std::optional(best->id) : std::nullopt;
}

} // namespace tessarin
