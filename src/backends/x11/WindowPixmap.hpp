#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/ExclusionRegion.hpp"
#include "base/HostClock.hpp"

#include <xcb/damage.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

namespace tessarin::x11 {

using EventHandler = std::function<void(const xcb_generic_event_t&)>;

// What a window's client paints, whatever covers the window or lies off the screen. While this exists the
// server keeps the window's pixels in memory of their own; what is on the screen does not change by that.
class WindowPixmap {
 public:
  WindowPixmap(Connection& connection, xcb_window_t window);
  ~WindowPixmap();
  WindowPixmap(WindowPixmap&& other) noexcept;
  WindowPixmap& operator=(WindowPixmap&& other) noexcept;

  // The pixels, with the window's border; its reading is refused where the window is not mapped.
  xcb_pixmap_t pixmap() const { return pixmap_; }
  // Has to be done when the window has been resized or mapped: it then has other memory.
  void rename();

 private:
  Connection* connection_;
  xcb_window_t window_;
  xcb_pixmap_t pixmap_ = 0;
};

// Waits until clients have painted what they had not painted as long as nobody could see it. One use:
// construct, watch each window before its pixels are kept, then wait.
class RepaintWatch {
 public:
  RepaintWatch(Connection& connection, const HostClock& clock);
  ~RepaintWatch();
  RepaintWatch(const RepaintWatch&) = delete;
  RepaintWatch& operator=(const RepaintWatch&) = delete;

  // `hidden` in coordinates of the window's inside.
  void watch(xcb_window_t window, Region hidden);
  // Returns when all of them have been painted, and at the latest after a sixth of a second: a window that
  // consists of its background alone gives no sign. Events that come meanwhile go to the handler. Throws
  // DesktopFailure.
  void wait(const EventHandler& others);

 private:
  struct Watched {
    xcb_damage_damage_t damage = 0;
    Region unpainted;
    // Host time at which its painting is taken to be done, unless there is more of it.
    std::int64_t settledAt = std::numeric_limits<std::int64_t>::max();
  };

  Watched* watchedBy(const xcb_generic_event_t& event);
  void skipBackgrounds(const EventHandler& others);

  Connection& connection_;
  const HostClock& clock_;
  std::vector<Watched> watched_;
};

} // namespace tessarin::x11
