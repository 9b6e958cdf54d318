#pragma once

#include "ports/InteractionEvents.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace tessarin {

// How a person moves the camera's panel: by dragging it, or by the arrow keys while it has the keyboard.
// Distances are points, to the right and downwards. Confined to the main queue.
class CameraOverlayView {
 public:
  struct Handlers {
    std::function<void(const PointerLocation& delta)> onMove;
    std::function<void()> onFinish;               // a move has come to its end
    std::function<PointerLocation()> panelOrigin; // the panel's top left corner, global
  };

  explicit CameraOverlayView(Handlers handlers) : handlers_(std::move(handlers)) {}

  void mouseDown(const PointerLocation& location);
  void mouseDragged(const PointerLocation& location);
  void mouseUp();
  // An arrow moves the panel by a point. Escape ends a drag and takes the panel back to where it began. False
  // for any other key, which is Escape too while nothing is dragged.
  bool keyDown(std::uint16_t evdevCode);

 private:
  bool cancelDrag(); // false without one
  void step(const PointerLocation& delta);

  const Handlers handlers_;
  std::optional<PointerLocation> previous_; // during a drag
  PointerLocation dragStartOrigin_;
};

} // namespace tessarin
