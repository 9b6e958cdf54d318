#include "backends/x11/StreamDisplay.hpp"

#include "backends/x11/ServerGrab.hpp"

namespace tessarin::x11 {

StreamDisplay::StreamDisplay(Connection& connection, PixelReader& reader, const HostClock& clock,
                             const PixelRect& area, const std::vector<RunningApplication>& excluded)
    : connection_(connection), canvasReader_(reader), area_(area) {
  if (!excluded.empty()) {
    exclusion_.emplace(connection, reader, clock, excluded, area);
  }
  damage_ = xcb_generate_id(connection.get());
  // The events grow with the bounding box, so that an excluded window which is painted again and again in the
  // same place sends no more than one.
  xcb_damage_create(connection.get(), damage_, connection.root(), XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
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
  return exclusion_ ? noteChange(exclusion_->handle(event)) : Sign::none;
}

StreamSource::Sign StreamDisplay::handleTime() {
  return exclusion_ ? noteChange(exclusion_->handleTime()) : Sign::none;
}

StreamSource::Sign StreamDisplay::noteChange(const std::optional<PixelRect>& changed) {
  if (!changed) {
    return Sign::none;
  }
  changes_.add(*changed);
  return Sign::changed;
}

bool StreamDisplay::isStale() const {
  return exclusion_ && exclusion_->isStale();
}

void StreamDisplay::prepare(const PixelRect& screen, const EventHandler& others) {
  const bool isResized = screen != screen_;
  screen_ = screen;
  if (isResized) {
    changes_.add(area_);
  }
  if (exclusion_ && (isResized || isStale())) {
    changes_.add(exclusion_->refresh(screen, others));
  }
}

void StreamDisplay::request(const PixelRect& wanted, const PixelBuffer& buffer,
                            const pixels::Canvas& canvas) {
  changes_.beginRead();
  std::optional<ServerGrab> stillness; // for the time of the two readings, which the server does in one go
  if (exclusion_ && exclusion_->needsStillness()) {
    stillness.emplace(connection_);
  }
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
