#pragma once

#include "backends/x11/ExclusionPlan.hpp"

#include <cstdint>

// Following windows by their events alone, without asking the server again: windows that are dragged about
// send one event for each step.
namespace tessarin::x11 {

struct WindowConfiguration {
  xcb_window_t window = 0;
  xcb_window_t beneath = 0; // the sibling right below, 0 for none
  PixelRect outer;          // with the border
  std::int32_t borderWidth = 0;
};

enum class StackChange : std::uint8_t {
  none,    // nothing that is to be seen
  moved,   // taken into the stack
  resized, // likewise; but the window's pixels are in other memory now
  unknown, // the stack has to be read anew
};

// A child of the root was moved, resized or restacked.
StackChange follow(WindowStack& stack, const WindowConfiguration& configuration);
// A child of the root has got another shape, or none. `extents` are those of its inside. Of the shape no more
// is known than these, which are enough for a window that is left out of a picture.
StackChange followShape(WindowStack& stack, xcb_window_t window, bool isShaped, const PixelRect& extents);
// There is a new child of the root, at the top and not to be seen yet.
void followCreation(WindowStack& stack, xcb_window_t window);
// A child of the root is gone.
StackChange followDestruction(WindowStack& stack, xcb_window_t window);

} // namespace tessarin::x11
