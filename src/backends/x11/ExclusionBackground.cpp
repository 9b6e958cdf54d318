#include "backends/x11/ExclusionBackground.hpp"

#include <xcb/composite.h>

#include <cstring>

namespace tessarin::x11 {

namespace {

// Read beside what is needed, in pixels to each side.
constexpr std::int32_t reserve = 160;

bool contains(const PixelRect& whole, const PixelRect& part) {
  return whole.intersection(part) == part;
}

} // namespace

// A compositing manager shows the pixmap that the root names. Otherwise a window that takes the root's
// background for its own is put beneath all others, where nobody sees it, and read.
void ExclusionBackground::provide(const PixelRect& rectangle, const PixelRect& screen, bool isComposited) {
  if (rectangle.isEmpty() || contains(area_, rectangle)) {
    return;
  }
  area_ = PixelRect{rectangle.x - reserve, rectangle.y - reserve, rectangle.width + 2 * reserve,
                    rectangle.height + 2 * reserve}
              .intersection(screen);
  const auto bytes = packedBytes(area_);
  if (bytes > buffer_.size()) {
    buffer_ = reader_.makeBuffer(bytes);
  }
  if (!(isComposited && readPixmap()) && !readWindow(isComposited)) {
    std::memset(buffer_.data(), 0, bytes);
  }
}

PictureView ExclusionBackground::view() const {
  return {buffer_.data(), area_.width, area_.height, std::ptrdiff_t{area_.width} * 4, PixelFormat::bgrx8};
}

bool ExclusionBackground::readPixmap() {
  const auto property = connection_.reply(
      xcb_get_property_reply, xcb_get_property(connection_.get(), 0, connection_.root(),
                                               connection_.atom(Atom::rootPixmap), XCB_ATOM_PIXMAP, 0, 1));
  if (!property || xcb_get_property_value_length(property.get()) != 4) {
    return false;
  }
  xcb_pixmap_t pixmap = 0;
  std::memcpy(&pixmap, xcb_get_property_value(property.get()), sizeof pixmap);
  const auto geometry =
      connection_.reply(xcb_get_geometry_reply, xcb_get_geometry(connection_.get(), pixmap));
  const bool isWhole = geometry && geometry->depth == connection_.screen().root_depth &&
                       geometry->width >= area_.right() && geometry->height >= area_.bottom();
  return isWhole && reader_.collect(reader_.request(pixmap, area_, buffer_));
}

bool ExclusionBackground::readWindow(bool isComposited) {
  auto* xcb = connection_.get();
  const auto window = xcb_generate_id(xcb);
  const std::uint32_t values[] = {XCB_BACK_PIXMAP_PARENT_RELATIVE, 1};
  xcb_create_window(xcb, XCB_COPY_FROM_PARENT, window, connection_.root(), static_cast<std::int16_t>(area_.x),
                    static_cast<std::int16_t>(area_.y), static_cast<std::uint16_t>(area_.width),
                    static_cast<std::uint16_t>(area_.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                    XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values);
  const std::uint32_t below = XCB_STACK_MODE_BELOW;
  xcb_configure_window(xcb, window, XCB_CONFIG_WINDOW_STACK_MODE, &below);
  // Kept off the screen by redirecting it without anyone who shows it.
  xcb_composite_redirect_window(
      xcb, window, isComposited ? XCB_COMPOSITE_REDIRECT_AUTOMATIC : XCB_COMPOSITE_REDIRECT_MANUAL);
  xcb_map_window(xcb, window);
  const auto pixmap = xcb_generate_id(xcb);
  xcb_composite_name_window_pixmap(xcb, window, pixmap);
  const auto pending = reader_.request(pixmap, {0, 0, area_.width, area_.height}, buffer_);
  xcb_free_pixmap(xcb, pixmap);
  xcb_destroy_window(xcb, window);
  return reader_.collect(pending);
}

} // namespace tessarin::x11
