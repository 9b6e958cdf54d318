#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Displays.hpp"

#include <cstdint>
#include <vector>

// Which windows there are, and how they lie in each other. Each function asks level by level, all windows of
// a level at once.
namespace tessarin::x11 {

struct TreeWindow {
  xcb_window_t top = 0;    // a child of the root
  xcb_window_t client = 0; // the managed window in it; itself when it is not managed
  bool isManaged = false;
  bool isOverrideRedirect = false;
  PixelRect outer;   // with the border
  PixelRect visible; // the bounding box of the shape, border included
  std::uint8_t depth = 0;
  xcb_visualid_t visual = 0;
};

// The visible children of the root, back to front, without what the server itself puts up. Throws
// DesktopFailure.
std::vector<TreeWindow> readTree(Connection& connection);

struct EmbeddedWindow {
  std::size_t dock = 0; // index into the docks asked for
  xcb_window_t window = 0;
  PixelRect bounds;
};

// The visible descendants of the docks that are embedded clients, back to front. Throws DesktopFailure.
std::vector<EmbeddedWindow> readEmbedded(Connection& connection, const std::vector<xcb_window_t>& docks);

} // namespace tessarin::x11
