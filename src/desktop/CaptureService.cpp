#include "desktop/CaptureService.hpp"

#include <algorithm>
#include <exception>
#include <optional>
#include <string>

namespace tessarin {

namespace {

// A request that the host could not have meant is reported as a failed service, under the same code and
// text as a refused one.
NativeServiceError serviceError(CaptureRequestError error) {
  const auto codeOf = [&] {
    switch (error) {
    case CaptureRequestError::displayNotFound:
      return NativeErrorCode::displayNotFound;
    case CaptureRequestError::windowChanged:
      return NativeErrorCode::windowNotFound;
    case CaptureRequestError::invalidEncoding:
    case CaptureRequestError::invalidGeometry:
    case CaptureRequestError::invalidOutputPath:
    case CaptureRequestError::windowIDRequired:
    case CaptureRequestError::regionOutsideDisplay:
      break;
    }
    return NativeErrorCode::invalidRequest;
  };
  return {codeOf(), std::string(messageOf(error))};
}

struct Target {
  ContentFilter filter;
  std::int32_t ownerProcessIdentifier = 0; // 0 where nothing is to be activated
};

const ShareableWindow& currentWindow(const CaptureRequestDTO& request, const ContentSnapshot& snapshot) {
  const auto& windows = snapshot.payload.windows;
  const auto listed = std::find_if(windows.begin(), windows.end(), [&](const WindowInfoDTO& window) {
    return request.windowID && window.id == *request.windowID;
  });
  request.validateCurrentWindow(listed != windows.end() ? &*listed : nullptr);
  const auto found = snapshot.windowsByID.find(request.windowID.value_or(std::string()));
  if (found == snapshot.windowsByID.end())
    throw serviceErrors::windowUnavailable();
  return found->second;
}

Target targetOf(const CaptureRequestDTO& request, const ContentSnapshot& snapshot) {
  const auto display = snapshot.displaysByID.find(request.displayID);
  if (display == snapshot.displaysByID.end())
    fail(CaptureRequestError::displayNotFound);
  if (request.kind != CaptureKind::window)
    return {.filter = {.kind = ContentFilter::Kind::display,
                       .displayID = display->second.displayID,
                       .windowID = 0,
                       .excludedApplications = snapshot.excludedApplications}};
  const ShareableWindow& window = currentWindow(request, snapshot);
  return {.filter = {.kind = ContentFilter::Kind::desktopIndependentWindow,
                     .displayID = display->second.displayID,
                     .windowID = window.windowID,
                     .excludedApplications = {}},
          .ownerProcessIdentifier = window.owningApplication ? window.owningApplication->processID : 0};
}

// A window keeps its transparent corners and has no shadow; a display is opaque.
StillConfiguration configurationFor(const ValidatedCaptureRequest& validated) {
  const bool isWindow = validated.request.kind == CaptureKind::window;
  return {.sourceRect = isWindow ? std::nullopt : std::optional(validated.sourceRectPoints),
          .width = validated.outputPixelSize.width,
          .height = validated.outputPixelSize.height,
          .ignoreShadowsSingleWindow = isWindow,
          .ignoreGlobalClipSingleWindow = isWindow,
          .showsCursor = false,
          .shouldBeOpaque = !isWindow};
}

} // namespace

CaptureService::CaptureService(Ports ports, std::int32_t parentProcessIdentifier)
    : ports_(std::move(ports)), parentProcessIdentifier_(parentProcessIdentifier) {}

CapturedImagePayload CaptureService::capture(const CaptureRequestDTO& request) const {
  const bool excludesParent = request.excludeParentApplication.value_or(false);
  const ContentService content(
      ports_.desktop, {}, excludesParent ? std::set{parentProcessIdentifier_} : std::set<std::int32_t>{});
  return capture(request, content.load());
}

CapturedImagePayload CaptureService::capture(const CaptureRequestDTO& request,
                                             const ContentSnapshot& snapshot) const {
  try {
    return captureUnguarded(request, snapshot);
  } catch (const NativeServiceError&) {
    throw;
  } catch (const Failure<CaptureRequestError>& failure) {
    throw serviceError(failure.value());
  } catch (const std::exception&) {
    throw serviceErrors::captureFailed();
  }
}

CapturedImagePayload CaptureService::captureUnguarded(const CaptureRequestDTO& request,
                                                      const ContentSnapshot& snapshot) const {
  const ValidatedCaptureRequest validated = request.validated(snapshot.payload.displays);
  const Target target = targetOf(request, snapshot);
  const double pointPixelScale = ports_.stills.pointPixelScale(target.filter);
  const StillConfiguration configuration = configurationFor(validated);

  WindowCaptureActivator::activate(ports_.applications, ports_.sleep, target.ownerProcessIdentifier);
  const Picture picture = ports_.stills.captureImage(target.filter, configuration);
  if (picture.view.width < 1 || picture.view.height < 1)
    throw serviceErrors::protectedContent();
  try {
    ports_.images.write(picture.view, request.outputPath);
  } catch (const std::exception&) {
    throw serviceErrors::outputFailed();
  }
  return {.path = request.outputPath,
          .widthPixels = picture.view.width,
          .heightPixels = picture.view.height,
          .scaleFactor = pointPixelScale};
}

} // namespace tessarin
