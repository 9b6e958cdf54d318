#include "backends/x11/StreamDisplay.hpp"

namespace tessarin::x11 {

StreamDisplay::StreamDisplay(Connection& connection, PixelReader& reader, const HostClock& clock,
                             const PixelRect& area, const std::vector<RunningApplication>& excluded)
    : connection_(connection), canvasReader_(reader), area_(area) {
  if (!excluded.empty()) {
    exclusion_.emplace(connection, reader, clock, excluded, area);
  }
  damage_ = xcb_generate_id(connection.get());
  // With windows to leave out, it matters whether a change lies in one of them, so that each has to be told.
  xcb_damage_create(connection.get(), damage_, connection.root(),
                    exclusion_ ? XCB_DAMAGE_REPORT_LEVEL_DELTA_RECTANGLES
                               : XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
  changes_.add(area);
}

StreamDisplay::~StreamDisplay() {
  xcb_damage_destroy(connection_.get(), damage_);
}

StreamSource::Sign StreamDisplay::noteDamage(const xcb_damage_notify_event_t& event) {
  const auto changed =
      PixelRect{event.area.x, event.area.y, event.area.width, event.area.height}.intersection(area_);
  if (changed.isEmpty() || (exclusion_ && exclusion_->hides(changed))) {
    return Sign::none;
  }
  changes_.add(changed);
  return Sign::changed;
}

StreamSource::Sign StreamDisplay::handle(const xcb_generic_event_t& event) {
  const auto damageEvent = connection_.extension(Extension::damage).firstEvent + XCB_DAMAGE_NOTIFY;
  if ((event.response_type & 0x7F) == damageEvent) {
    const auto& notify = reinterpret_cast<const xcb_damage_notify_event_t&>(event);
    if (notify.damage == damage_) {
      return noteDamage(notify);
    }
  }
  if (exclusion_ && exclusion_->handle(event)) {
    changes_.add(area_);
    return Sign::changed;
  }
  return Sign::none;
}

bool StreamDisplay::isStale() const {
  return exclusion_ && exclusion_->isStale();
}

void StreamDisplay::prepare(const PixelRect& screen, const EventHandler& others) {
  const bool isResized = screen != screen_;
  screen_ = screen;
  if (isResized || isStale()) {
    changes_.add(area_);
    if (exclusion_) {
      exclusion_->refresh(screen, others);
    }
  }
}

void StreamDisplay::request(const PixelRect& wanted, const PixelBuffer& buffer,
                            const pixels::Canvas& canvas) {
  changes_.beginRead();
  xcb_damage_subtract(connection_.get(), damage_, XCB_NONE, XCB_NONE);
  canvasReader_.request(connection_.root(), screen_, wanted, buffer, canvas);
  if (exclusion_) {
    exclusion_->request();
  }
}

bool StreamDisplay::collect(const PixelRect& wanted, const pixels::Canvas& canvas) {
  const bool isRead = canvasReader_.collect();
  if (!exclusion_) {
    return isRead;
  }
  const bool isPatchRead = exclusion_->collect();
  if (isRead && isPatchRead) {
    exclusion_->paint(canvas, wanted.x, wanted.y);
  }
  return isRead && isPatchRead;
}

} // namespace tessarin::x11
