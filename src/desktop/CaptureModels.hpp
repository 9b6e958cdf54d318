#pragma once

#include "model/Errors.hpp"
#include "model/Geometry.hpp"
#include "model/Permission.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The records of `list` and `capture`, and the checks on a still-capture request. Plain values and pure
// functions, any thread.
namespace tessarin {

// The answer of `list`.
struct CaptureContextPayload {
  PermissionStatus permission = PermissionStatus::granted;
  std::vector<DisplayInfoDTO> displays;
  std::vector<WindowInfoDTO> windows;
  std::vector<UIElementInfoDTO> uiElements;

  static constexpr auto fields() {
    return json::table(json::field("permission", &CaptureContextPayload::permission),
                       json::field("displays", &CaptureContextPayload::displays),
                       json::field("windows", &CaptureContextPayload::windows),
                       json::field("uiElements", &CaptureContextPayload::uiElements));
  }
  bool operator==(const CaptureContextPayload&) const = default;
};

// The answer of `capture`.
struct CapturedImagePayload {
  std::string path;
  std::int64_t widthPixels = 0; // of the image that was written
  std::int64_t heightPixels = 0;
  double scaleFactor = 1; // pixels per point

  static constexpr auto fields() {
    return json::table(json::field("path", &CapturedImagePayload::path),
                       json::field("widthPixels", &CapturedImagePayload::widthPixels),
                       json::field("heightPixels", &CapturedImagePayload::heightPixels),
                       json::field("scaleFactor", &CapturedImagePayload::scaleFactor));
  }
  bool operator==(const CapturedImagePayload&) const = default;
};

struct ValidatedCaptureRequest;

// The request of `capture`.
struct CaptureRequestDTO {
  CaptureKind kind = CaptureKind::region;
  std::string displayID;
  std::optional<std::string> windowID; // needed for a window
  RectDTO rectPoints;                  // the selection, in global points
  std::string outputPath;
  std::optional<bool> excludeParentApplication; // absent means false

  static constexpr auto fields() {
    return json::table(json::field("kind", &CaptureRequestDTO::kind),
                       json::field("displayId", &CaptureRequestDTO::displayID),
                       json::field("windowId", &CaptureRequestDTO::windowID),
                       json::field("rectPoints", &CaptureRequestDTO::rectPoints),
                       json::field("outputPath", &CaptureRequestDTO::outputPath),
                       json::field("excludeParentApplication", &CaptureRequestDTO::excludeParentApplication));
  }
  bool operator==(const CaptureRequestDTO&) const = default;

  // The request against the displays that exist now; the first rule that fails is thrown as
  // Failure<CaptureRequestError>.
  ValidatedCaptureRequest validated(const std::vector<DisplayInfoDTO>& displays) const;

  // Whether the window is still what the host selected; does nothing for other kinds. Throws
  // Failure<CaptureRequestError> windowChanged.
  void validateCurrentWindow(const WindowInfoDTO* window) const;
};

struct ValidatedCaptureRequest {
  CaptureRequestDTO request;
  DisplayInfoDTO display;
  RectDTO sourceRectPoints; // local to the display, snapped outward to whole pixels
  SizeDTO outputPixelSize;

  bool operator==(const ValidatedCaptureRequest&) const = default;
};

} // namespace tessarin
