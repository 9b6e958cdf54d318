#include "backends/x11/ExclusionFollow.hpp"

#include <algorithm>

namespace tessarin::x11 {

namespace {

StackedWindow* shown(WindowStack& stack, xcb_window_t window) {
  const auto found = std::find_if(stack.windows.begin(), stack.windows.end(),
                                  [&](const StackedWindow& each) { return each.window.top == window; });
  return found == stack.windows.end() ? nullptr : &*found;
}

// Whether the window lay there already; otherwise it is put there. False as well when the place is not known.
bool keepsItsPlace(std::vector<xcb_window_t>& order, xcb_window_t window, xcb_window_t beneath) {
  const auto present = std::find(order.begin(), order.end(), window);
  if (present == order.end()) {
    return false;
  }
  if (beneath == 0 ? present == order.begin() : present != order.begin() && *(present - 1) == beneath) {
    return true;
  }
  order.erase(present);
  const auto below = std::find(order.begin(), order.end(), beneath);
  order.insert(beneath == 0 || below == order.end() ? order.begin() : below + 1, window);
  return false;
}

void moveBy(PixelRect& rectangle, std::int32_t right, std::int32_t down) {
  rectangle.x += right;
  rectangle.y += down;
}

void move(StackedWindow& stacked, std::int32_t right, std::int32_t down) {
  moveBy(stacked.window.outer, right, down);
  moveBy(stacked.window.bounds, right, down);
  stacked.shape.moveBy(right, down);
}

} // namespace

StackChange follow(WindowStack& stack, const WindowConfiguration& configuration) {
  const bool isInPlace = keepsItsPlace(stack.order, configuration.window, configuration.beneath);
  auto* stacked = shown(stack, configuration.window);
  const auto& to = configuration.outer;
  if (!stacked) {
    // What was off the screen is left out of the stack, and may come to be seen.
    return to.intersection(stack.screen).isEmpty() ? StackChange::none : StackChange::unknown;
  }
  const auto from = stacked->window.outer;
  const bool isResized = to.width != from.width || to.height != from.height;
  if (!isInPlace || configuration.borderWidth != stacked->borderWidth || (isResized && stacked->isShaped)) {
    return StackChange::unknown;
  }
  if (isResized) {
    stacked->window.outer = to;
    stacked->window.bounds = to;
    stacked->shape = Region(to);
    return StackChange::resized;
  }
  if (to == from) {
    return StackChange::none;
  }
  move(*stacked, to.x - from.x, to.y - from.y);
  return StackChange::moved;
}

StackChange followShape(WindowStack& stack, xcb_window_t window, bool isShaped, const PixelRect& extents) {
  auto* stacked = shown(stack, window);
  if (!stacked) {
    return StackChange::unknown; // it may come to be seen
  }
  const auto& outer = stacked->window.outer;
  auto covered = extents;
  moveBy(covered, outer.x + stacked->borderWidth, outer.y + stacked->borderWidth);
  stacked->isShaped = isShaped;
  stacked->shape = Region(isShaped ? covered.intersection(outer) : outer);
  return StackChange::moved;
}

void followCreation(WindowStack& stack, xcb_window_t window) {
  stack.order.push_back(window);
}

StackChange followDestruction(WindowStack& stack, xcb_window_t window) {
  std::erase(stack.order, window);
  return shown(stack, window) ? StackChange::unknown : StackChange::none;
}

} // namespace tessarin::x11
