#pragma once

#include "backends/x11/PanelFocus.hpp"
#include "backends/x11/PanelSurface.hpp"
#include "ports/Panels.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace tessarin::x11 {

// How panels are made on a screen.
struct PanelVisual {
  std::uint8_t depth = 0;
  xcb_visualid_t visual = 0;
  xcb_colormap_t colormap = 0;
  bool hasAlpha = false;
};

// What all panels of a connection have in common. It outlives them.
struct PanelSurroundings {
  Connection& connection;
  PixelReader& reader;
  PanelFocus& focus;
  PanelVisual visual = {};
  xcb_atom_t shadowProperty = XCB_ATOM_NONE; // by which compositing managers are asked for none
  double scale = 1;                          // pixels per point
  bool isMixing = false;                     // a compositing manager is there
};

// One panel's window: what it shows, and what a person does with it. Confined to the connection's thread.
// Every call but the plain readings throws DesktopFailure when the server is lost.
class PanelWindow {
 public:
  PanelWindow(PanelSurroundings& surroundings, PanelSetup setup);
  ~PanelWindow();
  PanelWindow(const PanelWindow&) = delete;
  PanelWindow& operator=(const PanelWindow&) = delete;

  xcb_window_t id() const { return window_; }
  const std::string& label() const { return setup_.accessibilityLabel; }
  double scale() const { return surroundings_.scale; }
  SizeDTO pixelSize() const { return {pixels_.width, pixels_.height}; }

  void setFrame(const RectDTO& frame);
  void setPicture(const Picture& picture);
  // Shows its picture anew, since a compositing manager has come or gone.
  void noteMixing();
  void raise();

  // Takes an event that concerns it, and calls handlers. Motion is told before the next button or key, or
  // when all events have been handled, so that only the newest of those that wait is.
  void handle(const xcb_generic_event_t& event);
  void finishHandling();
  // The button is not to be waited for any more.
  void loseButton();

 private:
  void create();
  void setProperties();
  void setText(xcb_atom_t property, xcb_atom_t type, const std::string& text);
  void press(const xcb_button_press_event_t& event);
  void release(const xcb_button_release_event_t& event);
  void move(const xcb_motion_notify_event_t& event);
  void pressKey(const xcb_key_press_event_t& event);
  void leave(const xcb_leave_notify_event_t& event);
  PointerLocation location(std::int16_t rootX, std::int16_t rootY) const;

  PanelSurroundings& surroundings_;
  Connection& connection_;
  const PanelSetup setup_;
  const xcb_window_t window_;
  PixelRect pixels_; // empty: nothing is seen
  Picture picture_;
  std::optional<PanelSurface> surface_;
  bool isButtonDown_ = false;
  std::optional<PointerLocation> motion_; // not told yet
};

} // namespace tessarin::x11
