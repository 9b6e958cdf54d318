#include "backends/x11/Exclusion.hpp"

#include "backends/x11/ExclusionFollow.hpp"
#include "pixels/Compose.hpp"
#include "ports/Capture.hpp"

#include <xcb/damage.h>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <string>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::int64_t millisecond = 1'000'000;
// How long a compositing manager may show a window at the place that it was moved from, and, since windows
// fade, one that is gone.
constexpr std::int64_t showsMovedWindows = 300 * millisecond;
constexpr std::int64_t showsGoneWindows = 1000 * millisecond;
// Windows this many pixels beside an excluded one get memory of their own before it is dragged over them:
// what they had covered by then they would have to paint anew first.
constexpr std::int32_t keepingDistance = 160;

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

std::int64_t nanoseconds(const HostClock& clock) {
  return clock.now().convertedTo(MediaTime::nanosecondScale).value();
}

void growTo(PixelBuffer& buffer, std::size_t bytes, PixelReader& reader) {
  if (bytes > buffer.size()) {
    buffer = reader.makeBuffer(bytes);
  }
}

} // namespace

Exclusion::Exclusion(Connection& connection, PixelReader& reader, const HostClock& clock,
                     const std::vector<RunningApplication>& excluded, const PixelRect& area)
    : connection_(connection), reader_(reader), clock_(clock), area_(area), background_(connection, reader) {
  for (const auto& application : excluded) {
    excluded_.push_back(application.processID);
  }
  const std::uint32_t events =
      XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_change_window_attributes(connection.get(), connection.root(), XCB_CW_EVENT_MASK, &events);
  if (connection.extension(Extension::xfixes).isPresent) { // tells when compositing begins and ends
    xcb_xfixes_select_selection_input(connection.get(), connection.root(),
                                      compositingManagerSelection(connection),
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
  }
}

Exclusion::~Exclusion() {
  for (const auto& [window, kept] : kept_) {
    xcb_damage_destroy(connection_.get(), kept.damage);
  }
}

bool Exclusion::isOurOwn(xcb_window_t window) const {
  return connection_.clientBase(window) == connection_.setup().resource_id_base;
}

std::optional<PixelRect> Exclusion::becomeStale() {
  isStale_ = true;
  return area_;
}

std::optional<PixelRect> Exclusion::handle(const xcb_generic_event_t& event) {
  const auto type = event.response_type; // those that clients send have another one
  const auto& damage = connection_.extension(Extension::damage);
  const auto& shape = connection_.extension(Extension::shape);
  const auto& xfixes = connection_.extension(Extension::xfixes);
  if (damage.isPresent && type == damage.firstEvent + XCB_DAMAGE_NOTIFY) {
    return handleDamage(reinterpret_cast<const xcb_damage_notify_event_t&>(event));
  }
  if (shape.isPresent && type == shape.firstEvent + XCB_SHAPE_NOTIFY) {
    const auto kind = reinterpret_cast<const xcb_shape_notify_event_t&>(event).shape_kind;
    return kind == XCB_SHAPE_SK_BOUNDING ? becomeStale() : std::nullopt;
  }
  if (xfixes.isPresent && type == xfixes.firstEvent + XCB_XFIXES_SELECTION_NOTIFY) {
    return becomeStale();
  }
  if (type == XCB_PROPERTY_NOTIFY) {
    const auto& property = reinterpret_cast<const xcb_property_notify_event_t&>(event);
    return property.atom == connection_.atom(Atom::rootPixmap) ? becomeStale() : std::nullopt;
  }
  // All of the following name the window in the same place.
  const auto window = reinterpret_cast<const xcb_map_notify_event_t&>(event).window;
  switch (type) {
  case XCB_CREATE_NOTIFY:
  case XCB_CONFIGURE_NOTIFY:
  case XCB_DESTROY_NOTIFY:
  case XCB_MAP_NOTIFY:
  case XCB_UNMAP_NOTIFY:
  case XCB_REPARENT_NOTIFY:
  case XCB_CIRCULATE_NOTIFY:
    break;
  default:
    return std::nullopt;
  }
  if (isOurOwn(window)) {
    return std::nullopt;
  }
  switch (type) {
  case XCB_CREATE_NOTIFY:
    followCreation(stack_, window);
    return std::nullopt;
  case XCB_CONFIGURE_NOTIFY:
    return handleConfigure(reinterpret_cast<const xcb_configure_notify_event_t&>(event));
  case XCB_DESTROY_NOTIFY:
    return followDestruction(stack_, window) == StackChange::none ? std::nullopt : becomeStale();
  default:
    return becomeStale();
  }
}

std::optional<PixelRect> Exclusion::handleDamage(const xcb_damage_notify_event_t& event) {
  const auto found = std::find_if(kept_.begin(), kept_.end(),
                                  [&](const auto& each) { return each.second.damage == event.damage; });
  if (found == kept_.end()) {
    return std::nullopt;
  }
  found->second.isDamaged = true;
  for (const auto& layer : plan_.layers) {
    if (stack_.windows[layer.window].window.top == found->first) {
      return layer.region.extents();
    }
  }
  return std::nullopt; // the screen tells of what is in sight
}

std::optional<PixelRect> Exclusion::handleConfigure(const xcb_configure_notify_event_t& event) {
  const WindowConfiguration configuration{
      event.window,
      event.above_sibling,
      {event.x, event.y, event.width + 2 * event.border_width, event.height + 2 * event.border_width},
      event.border_width};
  switch (follow(stack_, configuration)) {
  case StackChange::none:
    return std::nullopt;
  case StackChange::moved:
    break;
  case StackChange::resized:
    if (!kept_.contains(event.window)) {
      break;
    }
    return becomeStale();
  case StackChange::unknown:
    return becomeStale();
  }
  isPlanStale_ = true;
  return plan_.patch.extents();
}

std::optional<PixelRect> Exclusion::handleTime() {
  if (!past_.forget(nanoseconds(clock_))) {
    return std::nullopt;
  }
  isPlanStale_ = true;
  return plan_.patch.extents();
}

PixelRect Exclusion::refresh(const PixelRect& screen, const EventHandler& others) {
  const bool wasComposited = stack_.isComposited;
  const bool isNew = isStale_ || screen != stack_.screen;
  isStale_ = isPlanStale_ = false; // what happens from here on makes it stale again
  if (isNew) {
    readStack(screen);
  }
  auto before = std::exchange(plan_, planExclusion(stack_, excluded_, area_));
  if (wasComposited) {
    rememberPlaces(before, isNew ? showsGoneWindows : showsMovedWindows);
  }
  if (const auto past = past_.rectangles(); !past.empty()) {
    plan_ = planExclusion(stack_, excluded_, area_, past);
  }
  requireKnownPixels();
  keepPixmaps(others);
  background_.provide(plan_.background.extents(), stack_.screen, stack_.isComposited);
  return isNew ? area_ : enclosing(before.patch.extents(), plan_.patch.extents());
}

void Exclusion::readStack(const PixelRect& screen) {
  stack_ = readWindowStack(connection_, screen);
  if (connection_.extension(Extension::shape).isPresent) {
    for (const auto& stacked : stack_.windows) {
      xcb_shape_select_input(connection_.get(), stacked.window.top, 1);
    }
  }
  dropUnused();
  for (auto& [window, kept] : kept_) {
    kept.pixmap.rename();
  }
  background_.forget();
}

void Exclusion::rememberPlaces(const ExclusionPlan& before, std::int64_t showsOn) {
  const auto now = nanoseconds(clock_);
  for (const auto& place : before.places) {
    if (std::find(plan_.places.begin(), plan_.places.end(), place) == plan_.places.end()) {
      past_.add(place, now, now + showsOn);
    }
  }
}

void Exclusion::requireKnownPixels() const {
  for (const auto& layer : plan_.layers) {
    const auto& window = stack_.windows[layer.window].window;
    if (!reader_.understands(window.depth, window.visual)) {
      throw CaptureFailure();
    }
  }
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
  for (const auto& layer : plan_.layers) {
    const auto& stacked = stack_.windows[layer.window];
    if (kept_.contains(stacked.window.top)) {
      continue;
    }
    if (!stack_.isComposited) { // a compositing manager keeps all of them
      auto hidden = layer.region.intersection(stack_.hiddenPart(layer.window));
      hidden.moveBy(-stacked.window.outer.x - stacked.borderWidth,
                    -stacked.window.outer.y - stacked.borderWidth);
      if (!hidden.isEmpty()) {
        watch.watch(stacked.window.top, std::move(hidden));
      }
    }
    keep(stacked.window.top);
  }
  if (!stack_.isComposited) {
    for (const auto index : windowsAround(stack_, excluded_, plan_, keepingDistance)) {
      const auto& window = stack_.windows[index].window;
      if (!kept_.contains(window.top) && reader_.understands(window.depth, window.visual)) {
        keep(window.top);
      }
    }
  }
  watch.wait([&](const xcb_generic_event_t& event) {
    handle(event);
    others(event);
  });
}

void Exclusion::keep(xcb_window_t window) {
  const auto damage = xcb_generate_id(connection_.get());
  xcb_damage_create(connection_.get(), damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
  kept_.emplace(window, Kept{WindowPixmap(connection_, window), damage});
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
  if (!plan_.background.isEmpty()) {
    paintRegion(plan_.background, background_.view(), background_.area(), false);
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
