#include "desktop/CaptureModels.hpp"

#include "base/Text.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tessarin {

namespace {

constexpr double regionTolerancePoints = 1e-6;
constexpr double windowTolerancePoints = 0.5;

bool isAcceptableOutputPath(const std::string& path) {
  const auto components = pathComponents(path);
  return isAbsolutePath(path) && lowercasePathExtension(path) == "png" &&
         std::find(components.begin(), components.end(), "..") == components.end();
}

bool liesInside(const RectDTO& rect, const RectDTO& frame) {
  return rect.x >= frame.x - regionTolerancePoints && rect.y >= frame.y - regionTolerancePoints &&
         rect.x + rect.width <= frame.x + frame.width + regionTolerancePoints &&
         rect.y + rect.height <= frame.y + frame.height + regionTolerancePoints;
}

// A window's rectangle is not bounded by a display, so it may lie beyond every integer.
std::int64_t saturated(double value) {
  if (std::isnan(value))
    return 0;
  if (value >= 0x1p63)
    return std::numeric_limits<std::int64_t>::max();
  if (value < -0x1p63)
    return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

RectDTO localSource(const CaptureRequestDTO& request, const DisplayInfoDTO& display) {
  const RectDTO& rect = request.rectPoints;
  const RectDTO& frame = display.framePoints;
  switch (request.kind) {
  case CaptureKind::region:
    if (!liesInside(rect, frame))
      fail(CaptureRequestError::regionOutsideDisplay);
    break;
  case CaptureKind::window:
    if (!request.windowID || request.windowID->empty())
      fail(CaptureRequestError::windowIDRequired);
    break;
  case CaptureKind::display:
    return {0, 0, frame.width, frame.height};
  }
  return {rect.x - frame.x, rect.y - frame.y, rect.width, rect.height};
}

bool isNear(double a, double b) {
  return std::fabs(a - b) <= windowTolerancePoints;
}

bool isNear(const RectDTO& a, const RectDTO& b) {
  return isNear(a.x, b.x) && isNear(a.y, b.y) && isNear(a.width, b.width) && isNear(a.height, b.height);
}

} // namespace

ValidatedCaptureRequest CaptureRequestDTO::validated(const std::vector<DisplayInfoDTO>& displays) const {
  if (!rectPoints.isFiniteAndPositive())
    fail(CaptureRequestError::invalidGeometry);
  if (!isAcceptableOutputPath(outputPath))
    fail(CaptureRequestError::invalidOutputPath);
  const auto display = std::find_if(displays.begin(), displays.end(), [&](const DisplayInfoDTO& candidate) {
    return candidate.id == displayID;
  });
  if (display == displays.end())
    fail(CaptureRequestError::displayNotFound);

  const RectDTO local = localSource(*this, *display);
  const double scale = display->scaleFactor;
  const double left = std::floor(local.x * scale);
  const double top = std::floor(local.y * scale);
  const double right = std::ceil((local.x + local.width) * scale);
  const double bottom = std::ceil((local.y + local.height) * scale);
  return {.request = *this,
          .display = *display,
          .sourceRectPoints = {left / scale, top / scale, (right - left) / scale, (bottom - top) / scale},
          .outputPixelSize = {saturated(right - left), saturated(bottom - top)}};
}

void CaptureRequestDTO::validateCurrentWindow(const WindowInfoDTO* window) const {
  if (kind != CaptureKind::window)
    return;
  const bool isUnchanged = window != nullptr && windowID && window->id == *windowID &&
                           window->displayID == displayID && window->isOnScreen &&
                           CaptureWindowLayer::isEligible(window->layer, window->framePoints) &&
                           isNear(window->framePoints, rectPoints);
  if (!isUnchanged)
    fail(CaptureRequestError::windowChanged);
}

} // namespace tessarin
