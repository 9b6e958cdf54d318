#pragma once

#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "ports/InteractionEvents.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Small windows of our own that float over the desktop while it is recorded. One backend serves them
// (src/backends/x11). Everything here is confined to the main thread.
namespace tessarin {

// What a person does with a panel. Locations are the pointer's, global. The pointer goes through what is less
// than half opaque. Keys arrive while the panel has the keyboard, which a press of the pointer on it gives
// it.
struct PanelHandlers {
  std::function<void(const PointerLocation&)> onMouseDown;    // the first button
  std::function<void(const PointerLocation&)> onMouseDragged; // while that button is down
  std::function<void()> onMouseUp;                            // also when the button is taken away
  // Repetitions too. Whether the key is for the panel: another one gives the keyboard back to whoever had it,
  // unless a drag is under way, so that a shortcut reaches them from its modifiers on.
  std::function<bool(std::uint16_t evdevCode)> onKeyDown;
};

struct PanelSetup {
  RectDTO frame;                   // points, global
  std::string accessibilityLabel;  // UTF-8; what a screen reader says
  bool ignoresMouseEvents = false; // the pointer goes through it to what lies beneath, and handlers are none
  PanelHandlers handlers;
};

// Borderless, above other windows, without a shadow, on every workspace, never the active window by itself;
// left alone by window managers. Once its server is lost a panel takes every call and does nothing.
class Panel {
 public:
  // Closes it. No handler is called from then on. Not within a handler.
  virtual ~Panel() = default;

  // The number that DesktopContent knows it by.
  virtual std::uint32_t windowID() const = 0;
  // Pixels per point.
  virtual double backingScale() const = 0;
  // Of the whole pixels that the frame touches; 0 by 0 for an empty one.
  virtual SizeDTO pixelSize() const = 0;

  // Points, global. With an empty frame nothing of it is seen.
  virtual void setFrame(const RectDTO& frame) = 0;
  // Shows the picture, bgra8Premultiplied, unscaled from the top left; what it does not reach is transparent.
  // Kept until the next one. A picture without pixels clears the panel. Where no compositing manager mixes
  // windows, pixels of at least half an alpha are shown opaque, and the others not at all.
  virtual void setPicture(const Picture& picture) = 0;
};

class PanelFactory {
 public:
  virtual ~PanelFactory() = default;
  // Shown at once, with nothing on it yet. Throws DesktopFailure.
  virtual std::unique_ptr<Panel> makePanel(PanelSetup setup) = 0;
};

} // namespace tessarin
