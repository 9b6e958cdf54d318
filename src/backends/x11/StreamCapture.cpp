#include "backends/x11/StreamCapture.hpp"

#include "backends/x11/StreamDisplay.hpp"
#include "backends/x11/StreamWindow.hpp"
#include "pixels/Compose.hpp"

#include <xcb/damage.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace tessarin::x11 {

namespace {

// Content that is rearranged this often while it is read is left for the next time.
constexpr int attempts = 3;
constexpr std::int64_t millisecond = 1'000'000;
// A pointer that a program moves gives no event: it is looked at from time to time, and often once it has
// been seen to move like that.
constexpr std::int64_t rareLooks = 100 * millisecond;
constexpr std::int64_t frequentLooks = 15 * millisecond;
constexpr std::int64_t frequentLooksEnd = 1000 * millisecond;

std::int64_t nanoseconds(const HostClock& clock) {
  return clock.now().convertedTo(MediaTime::nanosecondScale).value();
}

PixelRect pixelsOf(const RectDTO& points, const PixelRect& display, double scale) {
  const auto rounded = [scale](double value) {
    constexpr double limit = 32'767; // that the protocol's coordinates express
    if (!(std::abs(value * scale) <= limit)) {
      throw CaptureFailure();
    }
    return static_cast<std::int32_t>(std::lround(value * scale));
  };
  const PixelRect pixels{display.x + rounded(points.x), display.y + rounded(points.y), rounded(points.width),
                         rounded(points.height)};
  if (pixels.isEmpty()) {
    throw CaptureFailure();
  }
  return pixels;
}

PixelRect areaOf(const DisplayLayout& layout, const ContentFilter& filter, const RectDTO& sourceRect) {
  const auto found = std::find_if(layout.displays.begin(), layout.displays.end(),
                                  [&](const Display& each) { return each.id == filter.displayID; });
  if (found == layout.displays.end()) {
    throw CaptureFailure();
  }
  return pixelsOf(sourceRect, found->bounds, layout.scale);
}

// A single column or row more or less is made up for; other sizes are the receiver's to scale.
std::int32_t deliveredSide(std::int32_t native, std::int64_t asked) {
  return asked > 0 && std::abs(asked - native) <= 1 ? static_cast<std::int32_t>(asked) : native;
}

PixelRect relativeTo(const PixelRect& origin, const PixelRect& rectangle) {
  return {rectangle.x - origin.x, rectangle.y - origin.y, rectangle.width, rectangle.height};
}

// Whether two rows of pixels differ in colour; the fourth byte holds nothing.
bool rowsDiffer(const std::uint8_t* a, const std::uint8_t* b, std::int32_t pixels) {
  if (std::memcmp(a, b, static_cast<std::size_t>(pixels) * 4) == 0) {
    return false;
  }
  std::uint32_t difference = 0;
  for (std::ptrdiff_t i = 0; i < pixels; ++i) {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
    std::memcpy(&left, a + i * 4, 4);
    std::memcpy(&right, b + i * 4, 4);
    difference |= left ^ right;
  }
  return (difference & 0xFFFFFF) != 0;
}

} // namespace

StreamCapture::StreamCapture(std::unique_ptr<Connection> connection, const HostClock& clock,
                             const ContentFilter& filter, const StreamConfiguration& configuration)
    : connection_(std::move(connection)), clock_(clock), configuration_(configuration),
      reader_(*connection_) {
  if (!connection_->extension(Extension::composite).isAtLeast(0, 2) ||
      !connection_->extension(Extension::damage).isPresent || configuration.queueDepth < 1) {
    throw CaptureFailure();
  }
  const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_change_window_attributes(connection_->get(), connection_->root(), XCB_CW_EVENT_MASK, &events);
  const auto layout = DisplayQuery(*connection_).result();
  screen_ = layout.root;
  if (filter.kind == ContentFilter::Kind::desktopIndependentWindow) {
    source_ = std::make_unique<StreamWindow>(*connection_, reader_, clock, filter.windowID);
  } else {
    source_ = std::make_unique<StreamDisplay>(*connection_, reader_, clock,
                                              areaOf(layout, filter, configuration.sourceRect),
                                              filter.excludedApplications);
  }
  buffers_ = std::make_unique<StreamBuffers>(reader_, static_cast<std::size_t>(configuration.queueDepth));
  if (configuration.showsCursor) {
    cursor_.emplace(*connection_);
    cursor_->observe();
  }
  source_->prepare(screen_, [this](const xcb_generic_event_t& event) { handle(event); });
  if (source_->area().isEmpty()) {
    throw CaptureFailure();
  }
  // A server that one client keeps to itself for a while ends no recording; the stream's owner can stop it.
  connection_->setPatience(std::nullopt);
}

void StreamCapture::takeEvents() {
  while (const auto event = connection_->pollEvent()) {
    handle(*event);
  }
  if (source_->handleTime() == StreamSource::Sign::changed) {
    hasContentChanged_ = hasChanged_ = true;
  }
}

void StreamCapture::handle(const xcb_generic_event_t& event) {
  if (event.response_type == XCB_CONFIGURE_NOTIFY) {
    const auto& configure = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
    if (configure.window == connection_->root()) {
      screen_ = {0, 0, configure.width, configure.height};
      hasContentChanged_ = true;
      noteChange(nanoseconds(clock_));
    }
  }
  if (cursor_ && cursor_->handle(event)) {
    noteChange(nanoseconds(clock_));
    return;
  }
  switch (source_->handle(event)) {
  case StreamSource::Sign::ended:
    hasEnded_ = true;
    break;
  case StreamSource::Sign::changed:
    hasContentChanged_ = hasChanged_ = true;
    if (const auto when = timeOf(event)) {
      noteChange(*when);
    }
    break;
  case StreamSource::Sign::none:
    break;
  }
}

// A damage's event tells when it happened, on the server's clock in milliseconds; where that is this
// machine's own, it is better than the time at which this thread came to see the event. The others tell
// nothing: a window that was moved has waited for this thread, mostly for a tick.
std::optional<std::int64_t> StreamCapture::timeOf(const xcb_generic_event_t& event) const {
  const auto now = nanoseconds(clock_);
  const auto damageEvent = connection_->extension(Extension::damage).firstEvent + XCB_DAMAGE_NOTIFY;
  if ((event.response_type & 0x7F) != damageEvent) {
    return std::nullopt;
  }
  constexpr std::uint32_t longestDelay = 100; // milliseconds
  const auto& notify = reinterpret_cast<const xcb_damage_notify_event_t&>(event);
  const auto delay = static_cast<std::uint32_t>(now / millisecond) - notify.timestamp;
  return delay <= longestDelay ? now - std::int64_t{delay} * millisecond : now;
}

void StreamCapture::noteChange(std::int64_t when) {
  hasChanged_ = true;
  if (!std::exchange(isChangeTimed_, true)) {
    changedAt_ = when;
  }
}

std::int64_t StreamCapture::pointerLookTime() const {
  return lastLook_ + (lastLook_ - lastSilentMotion_ < frequentLooksEnd ? frequentLooks : rareLooks);
}

void StreamCapture::lookAtPointer() {
  const auto now = nanoseconds(clock_);
  if (hasChanged_ || !cursor_ || now < pointerLookTime()) {
    return;
  }
  lastLook_ = now;
  const auto before = cursor_->bounds();
  cursor_->request();
  cursor_->collect();
  takeEvents();
  if (!hasChanged_ && cursor_->bounds() != before) {
    lastSilentMotion_ = now;
    noteChange(now);
  }
}

// A pointer that moves beside the content changes nothing.
bool StreamCapture::isPointerElsewhere() {
  cursor_->request();
  cursor_->collect();
  const auto area = source_->area();
  return presentPointer_.isEmpty() && cursor_->bounds().intersection(area).isEmpty();
}

bool StreamCapture::takePicture() {
  if (!hasContentChanged_ && cursor_ && hasPresent() && isPointerElsewhere()) {
    hasChanged_ = isChangeTimed_ = false;
    return false;
  }
  for (int attempt = 0; attempt < attempts && !hasEnded_; ++attempt) {
    source_->prepare(screen_, [this](const xcb_generic_event_t& event) { handle(event); });
    const auto area = source_->area();
    if (area.isEmpty()) {
      hasChanged_ = hasContentChanged_ = source_->isStale();
      isChangeTimed_ = false;
      return false;
    }
    const auto width = deliveredSide(area.width, configuration_.width);
    const auto height = deliveredSide(area.height, configuration_.height);
    if (!buffers_->begin(width, height)) {
      return false;
    }
    hasChanged_ = hasContentChanged_ = isChangeTimed_ = false;
    const PixelRect wanted{area.x, area.y, std::min(area.width, width), std::min(area.height, height)};
    const bool isRead = readPicture(wanted);
    takeEvents();
    if (!isRead || source_->isStale()) {
      source_->keepChanges();
      hasChanged_ = hasContentChanged_ = true;
      continue;
    }
    finishPicture(area, wanted);
    if (!differsFromPresent(wanted)) {
      return false;
    }
    buffers_->publish();
    presentPointer_ = readPointer_;
    return true;
  }
  return false;
}

bool StreamCapture::readPicture(const PixelRect& wanted) {
  readAt_ = nanoseconds(clock_);
  source_->request(wanted, buffers_->buffer(), buffers_->canvas());
  if (cursor_) {
    cursor_->request();
  }
  const bool isRead = source_->collect(wanted, buffers_->canvas());
  if (cursor_) {
    cursor_->collect();
  }
  return isRead;
}

void StreamCapture::finishPicture(const PixelRect& area, const PixelRect& wanted) {
  const auto& canvas = buffers_->canvas();
  readPointer_ = {};
  if (cursor_) {
    auto content = canvas;
    content.width = wanted.width;
    content.height = wanted.height;
    cursor_->blendOver(content, area.x, area.y);
    readPointer_ = relativeTo(area, cursor_->bounds().intersection(wanted));
  }
  pixels::extendEdges(canvas, {0, 0, canvas.width - wanted.width, canvas.height - wanted.height});
}

// Only where something may have changed; the rest is as it was.
bool StreamCapture::differsFromPresent(const PixelRect& wanted) const {
  const auto& canvas = buffers_->canvas();
  if (!hasPresent()) {
    return true;
  }
  const auto& present = buffers_->presentView();
  if (present.width != canvas.width || present.height != canvas.height) {
    return true;
  }
  const auto pointers = enclosing(presentPointer_, readPointer_);
  const auto changed = enclosing(relativeTo(wanted, source_->changedArea()), pointers)
                           .intersection({0, 0, wanted.width, wanted.height});
  const auto offset = std::ptrdiff_t{changed.x} * 4;
  for (auto y = changed.y; y < changed.bottom(); ++y) {
    if (rowsDiffer(canvas.row(y) + offset, present.data + y * present.stride + offset, changed.width)) {
      return true;
    }
  }
  return false;
}

} // namespace tessarin::x11
