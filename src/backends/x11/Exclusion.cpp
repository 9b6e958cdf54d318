#include "backends/x11/Exclusion.hpp"

#include "pixels/Compose.hpp"
#include "ports/Capture.hpp"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/shape.h>

#include <algorithm>
#include <cstring>

namespace tessarin::x11 {

namespace {

pixels::Canvas part(const pixels::Canvas& canvas, const PixelRect& rectangle) {
  return {canvas.row(rectangle.y) + std::ptrdiff_t{rectangle.x} * 4, rectangle.width, rectangle.height,
          canvas.stride, canvas.format};
}

PictureView packedView(const std::uint8_t* data, const PixelRect& area, PixelFormat format) {
  return {data, area.width, area.height, std::ptrdiff_t{area.width} * 4, format};
}

PixelRect movedBy(const PixelRect& rectangle, std::int32_t x, std::int32_t y) {
  return {rectangle.x + x, rectangle.y + y, rectangle.width, rectangle.height};
}

void growTo(PixelBuffer& buffer, std::size_t bytes, PixelReader& reader) {
  if (bytes > buffer.size()) {
    buffer = reader.makeBuffer(bytes);
  }
}

} // namespace

Exclusion::Exclusion(Connection& connection, PixelReader& reader, const HostClock& clock,
                     const std::vector<RunningApplication>& excluded, const PixelRect& area)
    : connection_(connection), reader_(reader), clock_(clock), area_(area) {
  for (const auto& application : excluded) {
    excluded_.push_back(application.processID);
  }
  const std::uint32_t events =
      XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_change_window_attributes(connection.get(), connection.root(), XCB_CW_EVENT_MASK, &events);
}

Exclusion::~Exclusion() {
  for (const auto& [window, kept] : kept_) {
    xcb_damage_destroy(connection_.get(), kept.damage);
  }
}

bool Exclusion::isOurOwn(xcb_window_t window) const {
  return connection_.clientBase(window) == connection_.setup().resource_id_base;
}

bool Exclusion::handle(const xcb_generic_event_t& event) {
  const int type = event.response_type & 0x7F;
  const auto& damage = connection_.extension(Extension::damage);
  const auto& shape = connection_.extension(Extension::shape);
  if (damage.isPresent && type == damage.firstEvent + XCB_DAMAGE_NOTIFY) {
    const auto number = reinterpret_cast<const xcb_damage_notify_event_t&>(event).damage;
    for (auto& [window, kept] : kept_) {
      if (kept.damage == number) {
        kept.isDamaged = true;
        return true;
      }
    }
    return false;
  }
  if (shape.isPresent && type == shape.firstEvent + XCB_SHAPE_NOTIFY) {
    isStale_ = true;
    return true;
  }
  switch (type) {
  case XCB_MAP_NOTIFY:
  case XCB_UNMAP_NOTIFY:
  case XCB_DESTROY_NOTIFY:
  case XCB_REPARENT_NOTIFY:
  case XCB_CONFIGURE_NOTIFY:
  case XCB_CIRCULATE_NOTIFY:
    // All of them name the window in the same place.
    if (isOurOwn(reinterpret_cast<const xcb_map_notify_event_t&>(event).window)) {
      return false;
    }
    break;
  case XCB_PROPERTY_NOTIFY:
    if (reinterpret_cast<const xcb_property_notify_event_t&>(event).atom !=
        connection_.atom(Atom::rootPixmap)) {
      return false;
    }
    break;
  default:
    return false;
  }
  isStale_ = true;
  return true;
}

void Exclusion::refresh(const PixelRect& screen, const EventHandler& others) {
  isStale_ = false; // what happens from here on makes it stale again
  stack_ = readWindowStack(connection_, screen);
  if (connection_.extension(Extension::shape).isPresent) {
    for (const auto& stacked : stack_.windows) {
      xcb_shape_select_input(connection_.get(), stacked.window.top, 1);
    }
  }
  plan_ = planExclusion(stack_, excluded_, area_);
  for (const auto& layer : plan_.layers) {
    const auto& window = stack_.windows[layer.window].window;
    if (!reader_.understands(window.depth, window.visual)) {
      throw CaptureFailure();
    }
  }
  dropUnused();
  keepPixmaps(others);
  readBackground();
}

// Windows that have gone or are no longer shown; those that merely moved clear keep their pixels, since
// windows that are dragged about come back.
void Exclusion::dropUnused() {
  for (auto each = kept_.begin(); each != kept_.end();) {
    const bool isShown =
        std::any_of(stack_.windows.begin(), stack_.windows.end(),
                    [&](const StackedWindow& stacked) { return stacked.window.top == each->first; });
    if (isShown) {
      ++each;
    } else {
      xcb_damage_destroy(connection_.get(), each->second.damage);
      each = kept_.erase(each);
    }
  }
}

void Exclusion::keepPixmaps(const EventHandler& others) {
  RepaintWatch watch(connection_, clock_);
  for (auto& [window, kept] : kept_) {
    kept.pixmap.rename();
  }
  for (const auto& layer : plan_.layers) {
    const auto& stacked = stack_.windows[layer.window];
    const auto window = stacked.window.top;
    if (kept_.contains(window)) {
      continue;
    }
    if (!stack_.isComposited) { // a compositing manager keeps all of them
      Region hidden;
      for (const auto& rectangle : layer.region.rectangles()) {
        hidden.add(movedBy(rectangle, -stacked.window.outer.x - stacked.borderWidth,
                           -stacked.window.outer.y - stacked.borderWidth));
      }
      watch.watch(window, std::move(hidden));
    }
    const auto damage = xcb_generate_id(connection_.get());
    xcb_damage_create(connection_.get(), damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    kept_.emplace(window, Kept{WindowPixmap(connection_, window), damage});
  }
  watch.wait([&](const xcb_generic_event_t& event) {
    handle(event);
    others(event);
  });
}

// A compositing manager shows the pixmap that the root names. Otherwise a window that takes the root's
// background for its own is put beneath all others, where nobody sees it, and read.
void Exclusion::readBackground() {
  backgroundArea_ = plan_.background.extents();
  if (backgroundArea_.isEmpty()) {
    return;
  }
  growTo(background_, packedBytes(backgroundArea_), reader_);
  if (stack_.isComposited) {
    const auto property = connection_.reply(
        xcb_get_property_reply, xcb_get_property(connection_.get(), 0, connection_.root(),
                                                 connection_.atom(Atom::rootPixmap), XCB_ATOM_PIXMAP, 0, 1));
    if (property && xcb_get_property_value_length(property.get()) == 4) {
      xcb_pixmap_t pixmap = 0;
      std::memcpy(&pixmap, xcb_get_property_value(property.get()), sizeof pixmap);
      const auto geometry =
          connection_.reply(xcb_get_geometry_reply, xcb_get_geometry(connection_.get(), pixmap));
      const bool isWhole = geometry && geometry->depth == connection_.screen().root_depth &&
                           geometry->width >= backgroundArea_.right() &&
                           geometry->height >= backgroundArea_.bottom();
      if (isWhole && reader_.collect(reader_.request(pixmap, backgroundArea_, background_))) {
        return;
      }
    }
  }
  if (!readBackgroundWindow()) {
    std::memset(background_.data(), 0, packedBytes(backgroundArea_));
  }
}

bool Exclusion::readBackgroundWindow() {
  auto* xcb = connection_.get();
  const auto window = xcb_generate_id(xcb);
  const std::uint32_t values[] = {XCB_BACK_PIXMAP_PARENT_RELATIVE, 1};
  xcb_create_window(
      xcb, XCB_COPY_FROM_PARENT, window, connection_.root(), static_cast<std::int16_t>(backgroundArea_.x),
      static_cast<std::int16_t>(backgroundArea_.y), static_cast<std::uint16_t>(backgroundArea_.width),
      static_cast<std::uint16_t>(backgroundArea_.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values);
  const std::uint32_t below = XCB_STACK_MODE_BELOW;
  xcb_configure_window(xcb, window, XCB_CONFIG_WINDOW_STACK_MODE, &below);
  // Kept off the screen by redirecting it without anyone who shows it.
  xcb_composite_redirect_window(
      xcb, window, stack_.isComposited ? XCB_COMPOSITE_REDIRECT_AUTOMATIC : XCB_COMPOSITE_REDIRECT_MANUAL);
  xcb_map_window(xcb, window);
  const auto pixmap = xcb_generate_id(xcb);
  xcb_composite_name_window_pixmap(xcb, window, pixmap);
  const PixelRect all{0, 0, backgroundArea_.width, backgroundArea_.height};
  const auto pending = reader_.request(pixmap, all, background_);
  xcb_free_pixmap(xcb, pixmap);
  xcb_destroy_window(xcb, window);
  return reader_.collect(pending);
}

void Exclusion::request() {
  layers_.clear();
  std::size_t bytes = 0;
  for (const auto& layer : plan_.layers) {
    const auto area = layer.region.extents();
    layers_.push_back({{}, area, bytes});
    bytes += packedBytes(area);
  }
  growTo(pieces_, bytes, reader_);
  for (std::size_t i = 0; i < layers_.size(); ++i) {
    const auto& window = stack_.windows[plan_.layers[i].window].window;
    auto& kept = kept_.at(window.top);
    if (std::exchange(kept.isDamaged, false)) {
      xcb_damage_subtract(connection_.get(), kept.damage, XCB_NONE, XCB_NONE);
    }
    layers_[i].pending =
        reader_.request(kept.pixmap.pixmap(), movedBy(layers_[i].area, -window.outer.x, -window.outer.y),
                        pieces_, layers_[i].offset);
  }
}

bool Exclusion::collect() {
  bool isWhole = true;
  for (const auto& layer : layers_) {
    isWhole = reader_.collect(layer.pending) && isWhole; // all replies are taken
  }
  isStale_ = isStale_ || !isWhole;
  return isWhole;
}

void Exclusion::paint(const pixels::Canvas& canvas, std::int32_t left, std::int32_t top) const {
  const auto paintRegion = [&](const Region& region, const PictureView& source, const PixelRect& area,
                               bool isBlended) {
    const auto seen = region.intersection({left, top, canvas.width, canvas.height});
    for (const auto& rectangle : seen.rectangles()) {
      const auto target = part(canvas, movedBy(rectangle, -left, -top));
      const auto x = area.x - rectangle.x;
      const auto y = area.y - rectangle.y;
      if (isBlended) {
        pixels::blendOver(source, target, x, y);
      } else {
        pixels::copyPixels(source, target, x, y);
      }
    }
  };
  if (!backgroundArea_.isEmpty()) {
    paintRegion(plan_.background, packedView(background_.data(), backgroundArea_, PixelFormat::bgrx8),
                backgroundArea_, false);
  }
  for (std::size_t i = 0; i < layers_.size(); ++i) {
    const auto& layer = plan_.layers[i];
    paintRegion(layer.region,
                packedView(pieces_.data() + layers_[i].offset, layers_[i].area,
                           layer.isBlended ? PixelFormat::bgra8Premultiplied : PixelFormat::bgrx8),
                layers_[i].area, layer.isBlended);
  }
}

} // namespace tessarin::x11
