#include "backends/x11/WindowPixmap.hpp"

#include <xcb/composite.h>

#include <poll.h>

#include <algorithm>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t longestWait = 160 * millisecond;
// A client paints in several strokes: this long after the last of them it is taken to be done.
constexpr std::int64_t quietTime = 20 * millisecond;

std::int64_t nanoseconds(const HostClock& clock) {
  return clock.now().convertedTo(MediaTime::nanosecondScale).value();
}

} // namespace

WindowPixmap::WindowPixmap(Connection& connection, xcb_window_t window)
    : connection_(&connection), window_(window) {
  xcb_composite_redirect_window(connection.get(), window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  rename();
}

WindowPixmap::~WindowPixmap() {
  if (window_ != 0) {
    xcb_free_pixmap(connection_->get(), pixmap_);
    xcb_composite_unredirect_window(connection_->get(), window_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  }
}

WindowPixmap::WindowPixmap(WindowPixmap&& other) noexcept
    : connection_(other.connection_), window_(std::exchange(other.window_, 0)),
      pixmap_(std::exchange(other.pixmap_, 0)) {}

WindowPixmap& WindowPixmap::operator=(WindowPixmap&& other) noexcept {
  std::swap(connection_, other.connection_);
  std::swap(window_, other.window_);
  std::swap(pixmap_, other.pixmap_);
  return *this;
}

void WindowPixmap::rename() {
  if (pixmap_ != 0) {
    xcb_free_pixmap(connection_->get(), pixmap_);
  }
  pixmap_ = xcb_generate_id(connection_->get());
  xcb_composite_name_window_pixmap(connection_->get(), window_, pixmap_);
}

RepaintWatch::RepaintWatch(Connection& connection, const HostClock& clock)
    : connection_(connection), clock_(clock) {}

RepaintWatch::~RepaintWatch() {
  for (const auto& each : watched_) {
    xcb_damage_destroy(connection_.get(), each.damage);
  }
}

void RepaintWatch::watch(xcb_window_t window, Region hidden) {
  const auto damage = xcb_generate_id(connection_.get());
  xcb_damage_create(connection_.get(), damage, window, XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
  watched_.push_back({damage, std::move(hidden)});
}

RepaintWatch::Watched* RepaintWatch::watchedBy(const xcb_generic_event_t& event) {
  const auto damageEvent = connection_.extension(Extension::damage).firstEvent + XCB_DAMAGE_NOTIFY;
  if ((event.response_type & 0x7F) != damageEvent) {
    return nullptr;
  }
  const auto damage = reinterpret_cast<const xcb_damage_notify_event_t&>(event).damage;
  const auto found = std::find_if(watched_.begin(), watched_.end(),
                                  [&](const Watched& each) { return each.damage == damage; });
  return found == watched_.end() ? nullptr : &*found;
}

// The server has painted backgrounds by now; that is no sign of the clients.
void RepaintWatch::skipBackgrounds(const EventHandler& others) {
  connection_.sync();
  while (const auto event = connection_.pollEvent()) {
    if (!watchedBy(*event)) {
      others(*event);
    }
  }
}

void RepaintWatch::wait(const EventHandler& others) {
  if (watched_.empty()) {
    return;
  }
  skipBackgrounds(others);
  const auto end = nanoseconds(clock_) + longestWait;
  for (;;) {
    const auto now = nanoseconds(clock_);
    while (const auto event = connection_.pollEvent()) {
      auto* watched = watchedBy(*event);
      if (!watched) {
        others(*event);
        continue;
      }
      const auto& area = reinterpret_cast<const xcb_damage_notify_event_t&>(*event).area;
      const PixelRect painted{area.x, area.y, area.width, area.height};
      // Once all of it has been painted, an animation's further strokes don't matter.
      if (watched->unpainted.intersects(painted)) {
        watched->unpainted.subtract(painted);
        watched->settledAt = now + quietTime;
      }
    }
    auto settled = now;
    for (const auto& each : watched_) {
      settled = std::max(settled, std::min(each.settledAt, end));
    }
    if (settled <= now) {
      return;
    }
    pollfd descriptor{connection_.descriptor(), POLLIN, 0};
    poll(&descriptor, 1, static_cast<int>((settled - now) / millisecond + 1));
  }
}

} // namespace tessarin::x11
