#include "recording/CameraOverlayLayout.hpp"

#include <algorithm>
#include <cstdint>

namespace tessarin::CameraOverlayLayout {

namespace {

constexpr std::int64_t smallestSide = 2;
constexpr std::int64_t greatestWidth = 384;
constexpr std::int64_t greatestMargin = 24;
constexpr double placementSteps = 10000;

std::int64_t evenAndPositive(std::int64_t pixels) {
  return std::max(pixels - pixels % 2, smallestSide);
}

} // namespace

RectDTO rect(const SizeDTO& canvas, CameraPosition position,
             const std::optional<RecordingCameraPlacementDTO>& placement) {
  const std::int64_t canvasWidth = std::max(canvas.width, smallestSide);
  const std::int64_t canvasHeight = std::max(canvas.height, smallestSide);
  const std::int64_t width = std::min(evenAndPositive(canvasWidth / 5), greatestWidth);
  const std::int64_t height = evenAndPositive(std::min(width * 3 / 4, canvasHeight));
  const std::int64_t freeWidth = canvasWidth - width;
  const std::int64_t freeHeight = canvasHeight - height;
  RectDTO rect{0, 0, static_cast<double>(width), static_cast<double>(height)};
  if (placement) {
    rect.x = static_cast<double>(placement->x) * static_cast<double>(freeWidth) / placementSteps;
    rect.y = static_cast<double>(placement->y) * static_cast<double>(freeHeight) / placementSteps;
    return rect;
  }
  const std::int64_t margin = std::min(std::min(freeHeight, freeWidth) / 2, greatestMargin);
  const bool isLeft = position == CameraPosition::topLeft || position == CameraPosition::bottomLeft;
  const bool isTop = position == CameraPosition::topLeft || position == CameraPosition::topRight;
  rect.x = static_cast<double>(isLeft ? margin : freeWidth - margin);
  rect.y = static_cast<double>(isTop ? margin : freeHeight - margin);
  return rect;
}

} // namespace tessarin::CameraOverlayLayout
