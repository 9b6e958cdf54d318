#pragma once

#include "backends/x11/CanvasReader.hpp"
#include "backends/x11/ExclusionPlan.hpp"
#include "backends/x11/WindowPixmap.hpp"

#include <xcb/xproto.h>

#include <cstdint>
#include <optional>

namespace tessarin::x11 {

// One window by itself, as a person sees it: with its decoration, whole however covered, transparent outside
// of its shape, without the shadow that its client draws. Follows the window as it moves, changes its size
// and gets another frame. Confined to the connection's thread.
class WindowPicture {
 public:
  enum class Sign : std::uint8_t { none, changed, gone };

  WindowPicture(Connection& connection, PixelReader& reader, const HostClock& clock, xcb_window_t client);

  Sign handle(const xcb_generic_event_t& event);
  // Whether refresh() has to come before the next request.
  bool isStale() const { return isStale_; }
  // Finds the window anew and waits, within bounds, for what has to be painted first. Events that come
  // meanwhile go to the handler as well. Throws DesktopFailure, and CaptureFailure when the window's pixels
  // are of an unknown kind.
  void refresh(const PixelRect& screen, const EventHandler& others);

  // False while it is iconified or withdrawn.
  bool isShown() const { return stacked_.has_value(); }
  // Of the root window; only while it is shown.
  const PixelRect& bounds() const { return stacked_->window.bounds; }
  xcb_window_t top() const { return stacked_->window.top; }
  // Where the inside of `top` begins on the root window.
  std::int32_t insideX() const { return stacked_->window.outer.x + stacked_->borderWidth; }
  std::int32_t insideY() const { return stacked_->window.outer.y + stacked_->borderWidth; }

  // Reads a part of the bounds; see CanvasReader.
  void request(const PixelRect& wanted, const PixelBuffer& buffer, const pixels::Canvas& canvas);
  // False when the window has changed meanwhile. A canvas with alpha gets the window's own.
  bool collect(const PixelRect& wanted, const pixels::Canvas& canvas);

 private:
  Sign handleConfigure(const xcb_configure_notify_event_t& event);
  void watchOthers(bool isWatching);
  void keepPixels(const WindowStack& stack, std::size_t index, const EventHandler& others);

  Connection& connection_;
  PixelReader& reader_;
  const HostClock& clock_;
  xcb_window_t client_;
  CanvasReader canvasReader_;
  bool isStale_ = true;
  bool isWatchingOthers_ = false;
  std::optional<StackedWindow> stacked_;
  xcb_window_t keptWindow_ = 0;
  std::optional<WindowPixmap> pixmap_;
};

} // namespace tessarin::x11
