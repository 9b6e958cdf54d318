#pragma once

#include "backends/x11/Connection.hpp"

#include <optional>

namespace tessarin::x11 {

// The keyboard that a panel borrows from whoever had it. Confined to the connection's thread. Every call but
// letGo() throws DesktopFailure when the server is lost.
class PanelFocus {
 public:
  explicit PanelFocus(Connection& connection) : connection_(connection) {}

  // Gives the panel the keyboard; the time is that of the press that asks for it.
  void take(xcb_window_t panel, xcb_timestamp_t time);
  // Gives it back, unless the panel has lost it already.
  void giveBack(xcb_window_t panel);
  // The same for a panel whose window is about to end, which needs no answer of the server, and so does not
  // wait for one that stands still.
  void letGo(xcb_window_t panel);

 private:
  struct Owner {
    xcb_window_t window; // or one of the protocol's words for none
    std::uint8_t revertTo;
  };

  Connection& connection_;
  std::optional<xcb_window_t> panel_; // that has the keyboard, as far as we know
  // Who had it before any panel. One that has it without having asked for it leaves it to the pointer.
  Owner before_{XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_NONE};
  xcb_timestamp_t takenAt_ = 0; // server time; when a panel was given it last
};

} // namespace tessarin::x11
