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
};

struct WindowStack {
  PixelRect screen;
  bool isComposited = false;          // a compositing manager shows the windows
  std::vector<StackedWindow> windows; // back to front

  // Whether nothing beneath the window shines through.
  bool isOpaque(const StackedWindow& stacked) const { return !isComposited || stacked.window.depth != 32; }
  // What of the window cannot be seen: beneath others, or off the screen.
  Region hiddenPart(std::size_t index) const;
};

// Reads the windows with their shapes. Throws DesktopFailure.
WindowStack readWindowStack(Connection& connection, const PixelRect& screen);

// How a rectangle of the screen would look without some windows: which pixels differ, and where each of them
// comes from.
struct ExclusionPlan {
  struct Layer {
    std::size_t window = 0; // in the stack
    Region region;
    bool isBlended = false; // laid over what is beneath by its alpha
  };
  Region patch;              // where excluded windows are seen
  Region background;         // what the root window itself shows
  std::vector<Layer> layers; // back to front
};

ExclusionPlan planExclusion(const WindowStack& stack, const std::vector<std::int32_t>& excludedProcesses,
                            const PixelRect& area);

} // namespace tessarin::x11
