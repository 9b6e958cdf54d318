#include "backends/x11/Exclusion.hpp"
#include "backends/x11/ExclusionFollow.hpp"

#include <xcb/xfixes.h>

#include <algorithm>

// What the server's events tell an exclusion.
namespace tessarin::x11 {

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
    return handleShape(reinterpret_cast<const xcb_shape_notify_event_t&>(event));
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
    watchShape(window);
    return std::nullopt;
  case XCB_CONFIGURE_NOTIFY:
    return handleConfigure(reinterpret_cast<const xcb_configure_notify_event_t&>(event));
  case XCB_DESTROY_NOTIFY:
    watched_.erase(window);
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
  return takeMove();
}

std::optional<PixelRect> Exclusion::handleShape(const xcb_shape_notify_event_t& event) {
  if (event.shape_kind != XCB_SHAPE_SK_BOUNDING) {
    return std::nullopt;
  }
  const auto window = event.affected_window;
  const bool isLeftOut =
      std::any_of(stack_.windows.begin(), stack_.windows.end(), [&](const StackedWindow& each) {
        return each.window.top == window && isExcluded(each, excluded_);
      });
  const PixelRect extents{event.extents_x, event.extents_y, event.extents_width, event.extents_height};
  if (!isLeftOut || followShape(stack_, window, event.shaped != 0, extents) == StackChange::unknown) {
    return becomeStale();
  }
  return takeMove();
}

std::optional<PixelRect> Exclusion::takeMove() {
  isPlanStale_ = true;
  return plan_.patch.extents();
}

std::optional<PixelRect> Exclusion::handleTime() {
  return past_.forget(clock_.now().convertedTo(MediaTime::nanosecondScale).value()) ? takeMove()
                                                                                    : std::nullopt;
}

} // namespace tessarin::x11
