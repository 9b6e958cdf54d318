#include "backends/x11/WindowPicture.hpp"

#include "ports/Capture.hpp"

#include <xcb/shape.h>

#include <algorithm>

namespace tessarin::x11 {

namespace {

void makeOpaque(const pixels::Canvas& canvas, std::int32_t width, std::int32_t height) {
  for (std::int32_t y = 0; y < height; ++y) {
    auto* row = canvas.row(y);
    for (std::int32_t x = 0; x < width; ++x) {
      row[std::ptrdiff_t{x} * 4 + 3] = 0xFF;
    }
  }
}

} // namespace

WindowPicture::WindowPicture(Connection& connection, PixelReader& reader, const HostClock& clock,
                             xcb_window_t client)
    : connection_(connection), reader_(reader), clock_(clock), client_(client), canvasReader_(reader) {
  const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_change_window_attributes(connection.get(), client, XCB_CW_EVENT_MASK, &events);
}

WindowPicture::Sign WindowPicture::handleConfigure(const xcb_configure_notify_event_t& event) {
  if (!stacked_ || event.window != stacked_->window.top) {
    isStale_ = true;
    return Sign::changed;
  }
  auto& outer = stacked_->window.outer;
  if (event.width + 2 * event.border_width != outer.width ||
      event.height + 2 * event.border_width != outer.height) {
    isStale_ = true;
    return Sign::changed;
  }
  const auto right = event.x - outer.x;
  const auto down = event.y - outer.y;
  Region shape;
  for (const auto& rectangle : stacked_->shape.rectangles()) {
    shape.add(PixelRect{rectangle.x + right, rectangle.y + down, rectangle.width, rectangle.height});
  }
  stacked_->shape = std::move(shape);
  for (auto* rectangle : {&outer, &stacked_->window.bounds}) {
    rectangle->x += right;
    rectangle->y += down;
  }
  return right == 0 && down == 0 ? Sign::none : Sign::changed;
}

WindowPicture::Sign WindowPicture::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x80) != 0) {
    return Sign::none; // sent by a client, a window manager for one
  }
  const auto& shape = connection_.extension(Extension::shape);
  const xcb_window_t top = stacked_ ? stacked_->window.top : 0;
  if (shape.isPresent && event.response_type == shape.firstEvent + XCB_SHAPE_NOTIFY) {
    isStale_ = true;
    return Sign::changed;
  }
  // The events of structure name the window in the same place.
  const auto window = reinterpret_cast<const xcb_map_notify_event_t&>(event).window;
  switch (event.response_type) {
  case XCB_DESTROY_NOTIFY:
    if (window == client_) {
      return Sign::gone;
    }
    break;
  case XCB_CONFIGURE_NOTIFY:
    return window == client_ || window == top
               ? handleConfigure(reinterpret_cast<const xcb_configure_notify_event_t&>(event))
               : Sign::none;
  case XCB_MAP_NOTIFY:
  case XCB_UNMAP_NOTIFY:
  case XCB_REPARENT_NOTIFY:
    break;
  case XCB_PROPERTY_NOTIFY: {
    const auto& property = reinterpret_cast<const xcb_property_notify_event_t&>(event);
    if (property.window == client_ && property.atom == connection_.atom(Atom::gtkFrameExtents)) {
      isStale_ = true;
      return Sign::changed;
    }
    return Sign::none;
  }
  default:
    return Sign::none;
  }
  if (window != client_ && window != top && !isWatchingOthers_) {
    return Sign::none;
  }
  isStale_ = true;
  return Sign::changed;
}

// A window that is not shown may come to be so inside of any other.
void WindowPicture::watchOthers(bool isWatching) {
  std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  if (isWatching) {
    events |= XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
  }
  xcb_change_window_attributes(connection_.get(), connection_.root(), XCB_CW_EVENT_MASK, &events);
  isWatchingOthers_ = isWatching;
}

void WindowPicture::refresh(const PixelRect& screen, const EventHandler& others) {
  // What changes before its events are asked for is found by reading once more after that.
  constexpr int readings = 3;
  for (int reading = 0; reading < readings; ++reading) {
    isStale_ = false; // what happens from here on makes it stale again
    stacked_.reset();
    const auto stack = readWindowStack(connection_, screen);
    const auto found = std::find_if(stack.windows.begin(), stack.windows.end(),
                                    [&](const StackedWindow& each) { return each.window.client == client_; });
    if (found == stack.windows.end()) {
      pixmap_.reset();
      keptWindow_ = 0;
      if (isWatchingOthers_) {
        return;
      }
      watchOthers(true);
      continue;
    }
    if (!reader_.understands(found->window.depth, found->window.visual)) {
      throw CaptureFailure();
    }
    stacked_ = *found;
    if (isWatchingOthers_) {
      watchOthers(false);
    }
    if (found->window.top == keptWindow_) {
      pixmap_->rename();
      return;
    }
    keepPixels(stack, static_cast<std::size_t>(found - stack.windows.begin()), others);
  }
}

void WindowPicture::keepPixels(const WindowStack& stack, std::size_t index, const EventHandler& others) {
  const auto& stacked = stack.windows[index];
  const auto window = stacked.window.top;
  if (window != client_) {
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection_.get(), window, XCB_CW_EVENT_MASK, &events);
  }
  if (connection_.extension(Extension::shape).isPresent) {
    xcb_shape_select_input(connection_.get(), window, 1);
  }
  RepaintWatch watch(connection_, clock_);
  if (const auto hidden = stack.hiddenPart(index); !stack.isComposited && !hidden.isEmpty()) {
    Region local;
    for (const auto& rectangle : hidden.rectangles()) {
      local.add(
          PixelRect{rectangle.x - insideX(), rectangle.y - insideY(), rectangle.width, rectangle.height});
    }
    watch.watch(window, std::move(local));
  }
  keptWindow_ = window;
  pixmap_.emplace(connection_, window);
  watch.wait([&](const xcb_generic_event_t& event) {
    handle(event);
    others(event);
  });
}

void WindowPicture::request(const PixelRect& wanted, const PixelBuffer& buffer,
                            const pixels::Canvas& canvas) {
  canvasReader_.request(pixmap_->pixmap(), stacked_->window.outer, wanted, buffer, canvas);
}

bool WindowPicture::collect(const PixelRect& wanted, const pixels::Canvas& canvas) {
  if (!canvasReader_.collect()) {
    isStale_ = true;
    return false;
  }
  if (!stacked_) {
    return false;
  }
  if (canvas.format == PixelFormat::bgra8Premultiplied && stacked_->window.depth != 32) {
    makeOpaque(canvas, wanted.width, wanted.height);
  }
  Region outside(wanted);
  outside.subtract(stacked_->shape);
  for (const auto& rectangle : outside.rectangles()) {
    clear(canvas, {rectangle.x - wanted.x, rectangle.y - wanted.y, rectangle.width, rectangle.height});
  }
  return true;
}

} // namespace tessarin::x11
