#include "backends/x11/Exclusion.hpp"

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
  for (const auto window : childrenOfRoot(connection)) {
    watchShape(window);
  }
}

Exclusion::~Exclusion() {
  for (const auto& [window, kept] : kept_) {
    xcb_damage_destroy(connection_.get(), kept.damage);
  }
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
  new_.clear();
  background_.provide(plan_.background.extents(), stack_.screen, stack_.isComposited);
  layOutPieces();
  return isNew ? area_ : enclosing(before.patch.extents(), plan_.patch.extents());
}

void Exclusion::readStack(const PixelRect& screen) {
  std::set<xcb_window_t> before;
  for (const auto& stacked : stack_.windows) {
    before.insert(stacked.window.top);
  }
  constexpr int readings = 3;
  bool hasNew = true; // windows whose shape may have changed before it was watched
  for (int reading = 0; hasNew && reading < readings; ++reading) {
    stack_ = readWindowStack(connection_, screen);
    hasNew = false;
    for (const auto window : stack_.order) {
      hasNew = watchShape(window) || hasNew;
    }
  }
  new_.clear();
  for (std::size_t i = 0; i < stack_.windows.size() && !before.empty(); ++i) {
    if (!before.contains(stack_.windows[i].window.top)) {
      new_.push_back(i);
    }
  }
  dropUnused();
  for (auto& [window, kept] : kept_) {
    kept.pixmap.rename();
  }
  background_.forget();
}

// Also of windows that are not to be seen: an empty shape hides one that is mapped. Whether it is news.
bool Exclusion::watchShape(xcb_window_t window) {
  if (!connection_.extension(Extension::shape).isPresent || !watched_.insert(window).second) {
    return false;
  }
  xcb_shape_select_input(connection_.get(), window, 1);
  return true;
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
      watchHidden(watch, layer);
    }
    keep(stacked.window.top);
  }
  if (!stack_.isComposited) {
    watchNew(watch);
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

void Exclusion::watchHidden(RepaintWatch& watch, const ExclusionPlan::Layer& layer) const {
  const auto& stacked = stack_.windows[layer.window];
  auto hidden = layer.region.intersection(stack_.hiddenPart(layer.window));
  hidden.moveBy(-stacked.window.outer.x - stacked.borderWidth, -stacked.window.outer.y - stacked.borderWidth);
  if (!hidden.isEmpty()) {
    watch.watch(stacked.window.top, std::move(hidden));
  }
}

// A window that has come up in front of an excluded one shows that one's pixels until its client has painted
// it, unless it has a background.
void Exclusion::watchNew(RepaintWatch& watch) const {
  for (const auto index : new_) {
    const auto& stacked = stack_.windows[index];
    if (isExcluded(stacked, excluded_)) {
      continue;
    }
    Region unpainted;
    for (std::size_t below = 0; below < index; ++below) {
      if (isExcluded(stack_.windows[below], excluded_)) {
        unpainted.add(stack_.windows[below].shape.extents().intersection(area_));
      }
    }
    unpainted = unpainted.intersection(stacked.shape);
    unpainted.moveBy(-stacked.window.outer.x - stacked.borderWidth,
                     -stacked.window.outer.y - stacked.borderWidth);
    if (!unpainted.isEmpty()) {
      watch.watch(stacked.window.top, std::move(unpainted));
    }
  }
}

void Exclusion::keep(xcb_window_t window) {
  const auto damage = xcb_generate_id(connection_.get());
  xcb_damage_create(connection_.get(), damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
  kept_.emplace(window, Kept{WindowPixmap(connection_, window), damage});
}

void Exclusion::layOutPieces() {
  layers_.clear();
  layers_.reserve(plan_.layers.size());
  std::size_t bytes = 0;
  for (const auto& layer : plan_.layers) {
    const auto area = layer.region.extents();
    layers_.push_back({area, bytes});
    bytes += packedBytes(area);
  }
  if (bytes > pieces_.size()) {
    pieces_ = reader_.makeBuffer(bytes);
  }
}

void Exclusion::request() {
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
