#pragma once

#include "base/Json.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Displays, windows and rectangles as host and program speak of them. Distances are points in global
// coordinates (origin at the top left of the desktop, y downwards) unless a name says pixels. Plain values.
namespace tessarin {

struct RectDTO {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  static constexpr auto fields() {
    return json::table(json::field("x", &RectDTO::x), json::field("y", &RectDTO::y),
                       json::field("width", &RectDTO::width), json::field("height", &RectDTO::height));
  }

  bool isFiniteAndPositive() const;
  // Nothing where the rectangles only touch.
  std::optional<RectDTO> intersection(const RectDTO& other) const;

  bool operator==(const RectDTO&) const = default;
};

struct SizeDTO {
  std::int64_t width = 0;
  std::int64_t height = 0;

  static constexpr auto fields() {
    return json::table(json::field("width", &SizeDTO::width), json::field("height", &SizeDTO::height));
  }
  bool operator==(const SizeDTO&) const = default;
};

struct DisplayInfoDTO {
  std::string id;
  RectDTO framePoints;
  double scaleFactor = 1; // pixels per point
  SizeDTO pixelSize;
  bool isPrimary = false;

  static constexpr auto fields() {
    return json::table(json::field("id", &DisplayInfoDTO::id),
                       json::field("framePoints", &DisplayInfoDTO::framePoints),
                       json::field("scaleFactor", &DisplayInfoDTO::scaleFactor),
                       json::field("pixelSize", &DisplayInfoDTO::pixelSize),
                       json::field("isPrimary", &DisplayInfoDTO::isPrimary));
  }
  bool operator==(const DisplayInfoDTO&) const = default;
};

struct WindowInfoDTO {
  std::string id;
  std::string displayID; // the display that holds most of the window
  std::int32_t ownerPID = 0;
  std::string ownerName;
  std::string title;
  RectDTO framePoints;
  std::int64_t layer = 0;
  std::int64_t zIndex = 0; // 0 in front
  bool isOnScreen = false;

  static constexpr auto fields() {
    return json::table(
        json::field("id", &WindowInfoDTO::id), json::field("displayId", &WindowInfoDTO::displayID),
        json::field("ownerPid", &WindowInfoDTO::ownerPID),
        json::field("ownerName", &WindowInfoDTO::ownerName), json::field("title", &WindowInfoDTO::title),
        json::field("framePoints", &WindowInfoDTO::framePoints), json::field("layer", &WindowInfoDTO::layer),
        json::field("zIndex", &WindowInfoDTO::zIndex), json::field("isOnScreen", &WindowInfoDTO::isOnScreen));
  }
  bool operator==(const WindowInfoDTO&) const = default;
};

enum class UIElementKind : std::uint8_t { menuBar, menuBarItem, webElement };
constexpr auto jsonNames(UIElementKind) {
  return json::names<UIElementKind>({{UIElementKind::menuBar, "menuBar"},
                                     {UIElementKind::menuBarItem, "menuBarItem"},
                                     {UIElementKind::webElement, "webElement"}});
}

// A desktop element that is no window.
struct UIElementInfoDTO {
  std::string id;
  std::string displayID;
  std::string label;
  UIElementKind kind = UIElementKind::menuBar;
  RectDTO framePoints;
  std::int64_t zIndex = 0;

  static constexpr auto fields() {
    return json::table(
        json::field("id", &UIElementInfoDTO::id), json::field("displayId", &UIElementInfoDTO::displayID),
        json::field("label", &UIElementInfoDTO::label), json::field("kind", &UIElementInfoDTO::kind),
        json::field("framePoints", &UIElementInfoDTO::framePoints),
        json::field("zIndex", &UIElementInfoDTO::zIndex));
  }
  bool operator==(const UIElementInfoDTO&) const = default;
};

enum class CaptureKind : std::uint8_t { region, window, display };
constexpr auto jsonNames(CaptureKind) {
  return json::names<CaptureKind>(
      {{CaptureKind::region, "region"}, {CaptureKind::window, "window"}, {CaptureKind::display, "display"}});
}

namespace CaptureWindowLayer {
// Whether a window on this layer with this frame may be offered and captured.
bool isEligible(std::int64_t layer, const RectDTO& frame);
} // namespace CaptureWindowLayer

namespace WindowDisplayAssignment {
// The display that holds the largest part of the frame; on a tie the earlier one; nothing on no display.
std::optional<std::string> displayID(const RectDTO& frame, const std::vector<DisplayInfoDTO>& displays);
} // namespace WindowDisplayAssignment

} // namespace tessarin
