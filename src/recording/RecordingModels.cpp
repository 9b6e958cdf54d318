#include "recording/RecordingModels.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin {

namespace {

constexpr double regionTolerance = 1e-6;    // points
constexpr double windowMoveTolerance = 0.5; // points
constexpr std::int64_t placementGridEnd = 10000;

template<class... Allowed> bool isOneOf(std::int64_t value, Allowed... allowed) {
  return ((value == allowed) || ...);
}

bool isValid(const RecordingPresentationDTO& presentation) {
  if (!isOneOf(presentation.cursorScale, 100, 150, 200))
    return false;
  const auto onGrid = [](std::int64_t place) { return place >= 0 && place <= placementGridEnd; };
  return !presentation.cameraPlacement ||
         (onGrid(presentation.cameraPlacement->x) && onGrid(presentation.cameraPlacement->y));
}

bool isWithin(const RectDTO& region, const RectDTO& display) {
  return display.x - regionTolerance <= region.x && display.y - regionTolerance <= region.y &&
         region.x + region.width <= display.x + display.width + regionTolerance &&
         region.y + region.height <= display.y + display.height + regionTolerance;
}

bool isAsSelected(const WindowInfoDTO& window, const RecordingRequestDTO& request) {
  const auto near = [](double a, double b) { return std::fabs(a - b) <= windowMoveTolerance; };
  const RectDTO& now = window.framePoints;
  const RectDTO& then = request.rectPoints;
  return window.displayID == request.displayID && window.isOnScreen &&
         CaptureWindowLayer::isEligible(window.layer, now) && near(now.x, then.x) && near(now.y, then.y) &&
         near(now.width, then.width) && near(now.height, then.height);
}

WindowInfoDTO selectedWindow(const RecordingRequestDTO& request, const std::vector<WindowInfoDTO>& windows) {
  if (!request.windowID || request.windowID->empty())
    fail(RecordingRequestError::windowIDRequired);
  const auto window = std::find_if(windows.begin(), windows.end(), [&](const WindowInfoDTO& candidate) {
    return candidate.id == *request.windowID;
  });
  if (window == windows.end())
    fail(RecordingRequestError::windowNotFound);
  if (!isAsSelected(*window, request))
    fail(RecordingRequestError::windowChanged);
  return *window;
}

void checkByItself(const RecordingRequestDTO& request) {
  if (!isUuid(request.sessionID))
    fail(RecordingRequestError::invalidSessionID);
  if (!request.rectPoints.isFiniteAndPositive())
    fail(RecordingRequestError::invalidGeometry);
  if (!isOneOf(request.settings.frameRate, 15, 30, 60))
    fail(RecordingRequestError::unsupportedFrameRate);
  if (request.settings.presentation && !isValid(*request.settings.presentation))
    fail(RecordingRequestError::invalidGeometry);
  if (!isSessionDirectory(request.outputDirectory, request.sessionID))
    fail(RecordingRequestError::invalidOutputDirectory);
}

} // namespace

bool isSessionDirectory(const std::string& path, const std::string& sessionID) {
  // A path with a NUL byte would mean another, shorter one to the system.
  if (!isAbsolutePath(path) || path.find('\0') != std::string::npos)
    return false;
  return !hasParentComponent(path) && lastPathComponent(path) == sessionID;
}

ValidatedRecordingRequest RecordingRequestDTO::validated(const std::vector<DisplayInfoDTO>& displays,
                                                         const std::vector<WindowInfoDTO>& windows) const {
  checkByItself(*this);
  const auto display = std::find_if(displays.begin(), displays.end(), [&](const DisplayInfoDTO& candidate) {
    return candidate.id == displayID;
  });
  if (display == displays.end())
    fail(RecordingRequestError::displayNotFound);

  ValidatedRecordingRequest result{*this, *display, std::nullopt, {}};
  const RectDTO& frame = display->framePoints;
  switch (kind) {
  case CaptureKind::region:
    if (!isWithin(rectPoints, frame))
      fail(RecordingRequestError::regionOutsideDisplay);
    result.sourceRectPoints = {rectPoints.x - frame.x, rectPoints.y - frame.y, rectPoints.width,
                               rectPoints.height};
    break;
  case CaptureKind::display:
    result.sourceRectPoints = {0, 0, frame.width, frame.height};
    break;
  case CaptureKind::window:
    result.window = selectedWindow(*this, windows);
    result.sourceRectPoints = {0, 0, result.window->framePoints.width, result.window->framePoints.height};
    break;
  }
  return result;
}

} // namespace tessarin
