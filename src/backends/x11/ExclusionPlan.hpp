#pragma once

#include "backends/x11/ExclusionRegion.hpp"
#include "backends/x11/Windows.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessarin::x11 {

struct StackedWindow {
  TopLevelWindow window;
  std::int32_t borderWidth = 0;
  Region shape; // what it covers of the root window, with its border
  bool isShaped = false;
};

struct WindowStack {
  PixelRect screen;
  bool isComposited = false;          // a compositing manager shows the windows
  std::vector<StackedWindow> windows; // back to front
  // All children of the root, back to front, also those that are not to be seen.
  std::vector<xcb_window_t> order = {};

  // Whether nothing beneath the window shines through.
  bool isOpaque(const StackedWindow& stacked) const { return !isComposited || stacked.window.depth != 32; }
  // What of the window cannot be seen: beneath others, or off the screen.
  Region hiddenPart(std::size_t index) const;
};

// The selection that a compositing manager owns while it shows the windows. Throws DesktopFailure.
xcb_atom_t compositingManagerSelection(Connection& connection);

// All children of the root, back to front, without this connection's own. Throws DesktopFailure.
std::vector<xcb_window_t> childrenOfRoot(Connection& connection);

// Reads the windows with their shapes. Throws DesktopFailure.
WindowStack readWindowStack(Connection& connection, const PixelRect& screen);

// How far beside a window a compositing manager's shadow or glow of it may reach, in pixels: farther than the
// usual managers throw it unasked.
inline constexpr std::int32_t shadowReach = 64;

// How a rectangle of the screen would look without some windows: which pixels are painted anew, and where
// each of them comes from.
struct ExclusionPlan {
  struct Layer {
    std::size_t window = 0; // in the stack
    Region region;
    bool isBlended = false; // laid over what is beneath by its alpha
  };
  // Where the windows to be left out lie, as far as they may be seen: one rectangle each, or more for a shape
  // that leaves most of its rectangle free; with the reach of shadows under a compositing manager.
  std::vector<PixelRect> places;
  Region patch;              // all that is painted anew
  Region background;         // what the root window itself shows of that
  std::vector<Layer> layers; // back to front
};

// Without a compositing manager, what lies in front of an excluded window is left as it is. A compositing
// manager shows changes of the stacking order late: there everything is painted anew, and so are
// `pastPlaces`, where excluded windows may still be shown.
ExclusionPlan planExclusion(const WindowStack& stack, const std::vector<std::int32_t>& excludedProcesses,
                            const PixelRect& area, const std::vector<PixelRect>& pastPlaces = {});

// The windows that are seen, or would be without the excluded ones, in places up to this many pixels beside
// those of the plan; back to front, as indices into the stack.
std::vector<std::size_t> windowsAround(const WindowStack& stack,
                                       const std::vector<std::int32_t>& excludedProcesses,
                                       const ExclusionPlan& plan, std::int32_t distance);

bool isExcluded(const StackedWindow& stacked, const std::vector<std::int32_t>& excludedProcesses);

} // namespace tessarin::x11
