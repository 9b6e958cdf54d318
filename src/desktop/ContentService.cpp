#include "desktop/ContentService.hpp"

#include "base/Text.hpp"
#include "desktop/MenuBarElementCollector.hpp"
#include "desktop/WindowZOrderResolver.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessarin {

namespace {

constexpr double scaleTolerance = 0.001;

// Beyond this a side cannot be counted in whole pixels.
constexpr double largestPixelSide = 0x1p53;

DisplayInfoDTO describe(const ShareableDisplay& display) {
  const RectDTO& frame = display.frame;
  const double pixelWidth = std::ceil(frame.width * display.pointPixelScale);
  const double pixelHeight = std::ceil(frame.height * display.pointPixelScale);
  const auto isPixelSide = [](double side) { return side >= 1 && side <= largestPixelSide; };
  if (!frame.isFiniteAndPositive() || !isPixelSide(pixelWidth) || !isPixelSide(pixelHeight))
    fail(ModelValidationError::invalidDisplayGeometry);
  const double scaleX = pixelWidth / frame.width;
  const double scaleY = pixelHeight / frame.height;
  if (std::fabs(scaleX - scaleY) > scaleTolerance)
    fail(ModelValidationError::inconsistentDisplayScale);
  return {.id = std::to_string(display.displayID),
          .framePoints = frame,
          .scaleFactor = scaleX,
          .pixelSize = {static_cast<std::int64_t>(pixelWidth), static_cast<std::int64_t>(pixelHeight)},
          .isPrimary = display.isMain};
}

std::vector<DisplayInfoDTO> describeAll(const std::vector<ShareableDisplay>& displays) {
  std::vector<DisplayInfoDTO> result;
  result.reserve(displays.size());
  for (const ShareableDisplay& display : displays)
    result.push_back(describe(display));
  return result;
}

std::string titleOf(const ShareableWindow& window) {
  const std::string_view title = trimmed(window.title ? std::string_view(*window.title) : std::string_view());
  return title.empty() ? window.owningApplication->applicationName : std::string(title);
}

} // namespace

ContentService::ContentService(DesktopContent& desktop,
                               std::set<std::string, std::less<>> excludedBundleIdentifiers,
                               std::set<std::int32_t> excludedProcessIdentifiers)
    : desktop_(desktop), excludedBundleIdentifiers_(std::move(excludedBundleIdentifiers)),
      excludedProcessIdentifiers_(std::move(excludedProcessIdentifiers)) {}

bool ContentService::shouldExclude(std::string_view bundleIdentifier, std::int32_t processIdentifier) const {
  return excludedBundleIdentifiers_.contains(bundleIdentifier) ||
         excludedProcessIdentifiers_.contains(processIdentifier);
}

ContentSnapshot ContentService::load() const {
  if (!desktop_.hasScreenCaptureAccess())
    throw serviceErrors::screenPermissionDenied();
  ContentSnapshot snapshot;
  ShareableContent content;
  try {
    content = desktop_.content();
    snapshot.payload.displays = describeAll(content.displays);
  } catch (const NativeServiceError&) {
    throw;
  } catch (const std::exception&) {
    throw serviceErrors::contentUnavailable();
  }
  if (snapshot.payload.displays.empty())
    throw serviceErrors::contentUnavailable();
  for (const ShareableDisplay& display : content.displays)
    snapshot.displaysByID.emplace(std::to_string(display.displayID), display);

  snapshot.payload.permission = PermissionStatus::granted;
  snapshot.payload.windows = eligibleWindows(content, snapshot);
  for (const RunningApplication& application : content.applications)
    if (shouldExclude(application.bundleIdentifier, application.processID))
      snapshot.excludedApplications.push_back(application);
  if (content.windowList)
    snapshot.payload.uiElements =
        MenuBarElementCollector::collect(*content.windowList, snapshot.payload.displays);
  return snapshot;
}

std::vector<WindowInfoDTO> ContentService::eligibleWindows(const ShareableContent& content,
                                                           ContentSnapshot& snapshot) const {
  const auto positions =
      WindowZOrderResolver::resolve(content.windowList.value_or(std::vector<WindowListEntry>{}));
  std::int64_t fallbackBase = 0;
  for (const auto& [number, position] : positions)
    fallbackBase = std::max(fallbackBase, position + 1);

  std::vector<WindowInfoDTO> result;
  for (std::size_t index = 0; index < content.windows.size(); ++index) {
    const ShareableWindow& window = content.windows[index];
    if (!window.isOnScreen || !CaptureWindowLayer::isEligible(window.windowLayer, window.frame) ||
        !window.owningApplication)
      continue;
    const RunningApplication& owner = *window.owningApplication;
    if (shouldExclude(owner.bundleIdentifier, owner.processID))
      continue;
    const auto displayID = WindowDisplayAssignment::displayID(window.frame, snapshot.payload.displays);
    if (!displayID)
      continue;
    const auto position = positions.find(window.windowID);
    const std::string id = std::to_string(window.windowID);
    result.push_back({.id = id,
                      .displayID = *displayID,
                      .ownerPID = owner.processID,
                      .ownerName = owner.applicationName,
                      .title = titleOf(window),
                      .framePoints = window.frame,
                      .layer = window.windowLayer,
                      .zIndex = position != positions.end() ? position->second
                                                            : fallbackBase + static_cast<std::int64_t>(index),
                      .isOnScreen = window.isOnScreen});
    snapshot.windowsByID.emplace(id, window);
  }
  return result;
}

} // namespace tessarin
