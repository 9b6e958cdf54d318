#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Displays.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The windows on the screen, as the X server tells of them, in pixels of the root window.
namespace tessarin::x11 {

namespace WindowLayer {
inline constexpr std::int64_t desktop = -1;
inline constexpr std::int64_t ordinary = 0;
inline constexpr std::int64_t raised = 3;      // utility windows, and those kept above others
inline constexpr std::int64_t menuBar = 24;    // docks and panels
inline constexpr std::int64_t statusItem = 25; // icons embedded in a dock
inline constexpr std::int64_t popUp = 101;     // menus, tips, notifications
} // namespace WindowLayer

// What tells whose window it is.
struct WindowOwner {
  std::optional<std::int32_t> processID;
  std::string instanceName; // the two parts of WM_CLASS, UTF-8
  std::string className;
};

// An icon that a client has embedded in a dock.
struct EmbeddedIcon {
  xcb_window_t window = 0;
  PixelRect bounds;
  std::optional<std::string> title;
  WindowOwner owner;
};

struct TopLevelWindow {
  xcb_window_t client = 0; // the application's own window
  xcb_window_t top = 0;    // the child of the root that shows it: the window manager's frame, or the client
  PixelRect outer;         // of `top` with its border: what its pixmap covers
  PixelRect bounds;        // what a person sees: the shape's bounding box, without client-drawn shadow
  std::uint8_t depth = 0;  // of `top`
  xcb_visualid_t visual = 0;
  bool isOverrideRedirect = false; // not managed, but placed by its client
  std::int64_t layer = WindowLayer::ordinary;
  std::optional<std::string> title; // UTF-8, repaired
  WindowOwner owner;
  std::vector<EmbeddedIcon> icons; // of a dock, back to front
};

// Every window to be seen, back to front. Left out are unmapped and input-only windows, the helpers of window
// managers (unmanaged, and a single pixel or off the screen) and what the server itself puts up.
//
// The number of round trips does not depend on the number of windows: all of them are asked at once, level by
// level. A window that goes away meanwhile is left out. `root` is the screen at its present size.
// Throws DesktopFailure.
std::vector<TopLevelWindow> readWindows(Connection& connection, const PixelRect& root);

} // namespace tessarin::x11
