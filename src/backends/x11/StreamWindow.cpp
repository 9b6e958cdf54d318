#include "backends/x11/StreamWindow.hpp"

namespace tessarin::x11 {

StreamWindow::StreamWindow(Connection& connection, PixelReader& reader, const HostClock& clock,
                           xcb_window_t client)
    : connection_(connection), window_(connection, reader, clock, client) {}

StreamWindow::~StreamWindow() {
  if (damage_ != 0) {
    xcb_damage_destroy(connection_.get(), damage_);
  }
}

StreamSource::Sign StreamWindow::handle(const xcb_generic_event_t& event) {
  const auto damageEvent = connection_.extension(Extension::damage).firstEvent + XCB_DAMAGE_NOTIFY;
  if ((event.response_type & 0x7F) == damageEvent) {
    const auto& notify = reinterpret_cast<const xcb_damage_notify_event_t&>(event);
    if (notify.damage != damage_ || !window_.isShown()) {
      return Sign::none;
    }
    changes_.add({window_.insideX() + notify.area.x, window_.insideY() + notify.area.y, notify.area.width,
                  notify.area.height});
    return Sign::changed;
  }
  switch (window_.handle(event)) {
  case WindowPicture::Sign::gone:
    return Sign::ended;
  case WindowPicture::Sign::changed:
    if (window_.isShown()) { // it may have moved, and what was noted before is elsewhere now
      changes_.add(window_.bounds());
    }
    return Sign::changed;
  case WindowPicture::Sign::none:
    break;
  }
  return Sign::none;
}

void StreamWindow::prepare(const PixelRect& screen, const EventHandler& others) {
  if (!window_.isStale()) {
    return;
  }
  window_.refresh(screen, others);
  if (!window_.isShown()) {
    return;
  }
  changes_.add(window_.bounds());
  if (window_.top() != damagedWindow_) {
    if (damage_ != 0) {
      xcb_damage_destroy(connection_.get(), damage_);
    }
    damagedWindow_ = window_.top();
    damage_ = xcb_generate_id(connection_.get());
    xcb_damage_create(connection_.get(), damage_, damagedWindow_, XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
  }
}

void StreamWindow::request(const PixelRect& wanted, const PixelBuffer& buffer, const pixels::Canvas& canvas) {
  changes_.beginRead();
  xcb_damage_subtract(connection_.get(), damage_, XCB_NONE, XCB_NONE);
  window_.request(wanted, buffer, canvas);
}

bool StreamWindow::collect(const PixelRect& wanted, const pixels::Canvas& canvas) {
  return window_.collect(wanted, canvas);
}

} // namespace tessarin::x11
