#include "recording/CameraOverlayView.hpp"

#include "trace/InteractionShortcutPrivacy.hpp"

namespace tessarin {

namespace {

// The system's own codes, as InteractionShortcutPrivacy tells keys.
constexpr std::uint16_t escapeKey = 53;
constexpr std::uint16_t leftKey = 123;
constexpr std::uint16_t rightKey = 124;
constexpr std::uint16_t downKey = 125;
constexpr std::uint16_t upKey = 126;

PointerLocation difference(const PointerLocation& a, const PointerLocation& b) {
  return {a.x - b.x, a.y - b.y};
}

} // namespace

void CameraOverlayView::mouseDown(const PointerLocation& location) {
  dragStartOrigin_ = handlers_.panelOrigin();
  previous_ = location;
}

void CameraOverlayView::mouseDragged(const PointerLocation& location) {
  if (!previous_)
    return;
  const PointerLocation delta = difference(location, *previous_);
  previous_ = location;
  handlers_.onMove(delta);
}

void CameraOverlayView::mouseUp() {
  previous_.reset();
  handlers_.onFinish();
}

bool CameraOverlayView::keyDown(std::uint16_t evdevCode) {
  switch (InteractionShortcutPrivacy::keyCode(evdevCode).value_or(0)) {
  case escapeKey:
    return cancelDrag();
  case leftKey:
    step({-1, 0});
    return true;
  case rightKey:
    step({1, 0});
    return true;
  case downKey:
    step({0, 1});
    return true;
  case upKey:
    step({0, -1});
    return true;
  default:
    return false;
  }
}

// The button is still down; what follows until it comes up is no drag any more.
bool CameraOverlayView::cancelDrag() {
  if (!previous_)
    return false;
  previous_.reset();
  handlers_.onMove(difference(dragStartOrigin_, handlers_.panelOrigin()));
  return true;
}

void CameraOverlayView::step(const PointerLocation& delta) {
  handlers_.onMove(delta);
  handlers_.onFinish();
}

} // namespace tessarin
