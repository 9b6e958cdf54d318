#pragma once

#include "backends/x11/Connection.hpp"

#include <cstdint>
#include <optional>

namespace tessarin::x11 {

// Which window gets what is typed, and whether it is one of this process. Watches the focus, so that the
// server tells its changes to a record. Confined to one thread. All throw DesktopFailure when the server is
// lost.
class InputFocus {
 public:
  explicit InputFocus(Connection& connection);

  // The focus may have moved.
  void moved() { isStale_ = true; }
  // Reads what has moved.
  void refresh();
  // Whether a window of this process gets what is typed now, where nobody has taken the keyboard. The
  // pointer's place on the root window matters when no window has the focus.
  bool isOurs(std::int16_t pointerX, std::int16_t pointerY);
  // Whether a client, by its base, is a connection of this process.
  bool isOurClient(std::uint32_t clientBase);

 private:
  xcb_window_t readFocus();
  xcb_window_t windowAt(std::int16_t x, std::int16_t y);
  std::optional<std::int32_t> processOf(xcb_window_t window);
  void watch(xcb_window_t window, bool isWatched);

  Connection& connection_;
  const std::optional<std::int32_t> process_; // this one, as the server numbers it
  xcb_window_t focus_ = XCB_NONE;
  bool isOurs_ = false;
  bool isStale_ = true;
};

} // namespace tessarin::x11
