#include "backends/x11/Cursor.hpp"

#include "pixels/Compose.hpp"

#include <xcb/xinput.h>

#include <array>
#include <string_view>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::int32_t arrowWidth = 11;
constexpr auto arrow = std::to_array<std::string_view>({
    "#          ",
    "##         ",
    "#.#        ",
    "#..#       ",
    "#...#      ",
    "#....#     ",
    "#.....#    ",
    "#......#   ",
    "#.......#  ",
    "#........# ",
    "#.....#####",
    "#..#..#    ",
    "#.# #..#   ",
    "##  #..#   ",
    "#    #..#  ",
    "     #..#  ",
    "      ##   ",
});

} // namespace

Cursor::Cursor(Connection& connection) : connection_(connection) {}

void Cursor::observe() {
  auto* xcb = connection_.get();
  if (connection_.extension(Extension::xfixes).isPresent) {
    xcb_xfixes_select_cursor_input(xcb, connection_.root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
  }
  xcb_prefetch_extension_data(xcb, &xcb_input_id);
  connection_.sync(); // whose waiting has an end, unlike that for an extension's data
  const auto* input = xcb_get_extension_data(xcb, &xcb_input_id);
  if (!input || !input->present ||
      !connection_.reply(xcb_input_xi_query_version_reply, xcb_input_xi_query_version(xcb, 2, 2))) {
    return;
  }
  inputOpcode_ = input->major_opcode;
  struct {
    xcb_input_event_mask_t head;
    std::uint32_t mask;
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_MOTION};
  xcb_input_xi_select_events(xcb, connection_.root(), 1, &selection.head);
}

bool Cursor::handle(const xcb_generic_event_t& event) {
  const auto type = event.response_type & 0x7F;
  const auto& xfixes = connection_.extension(Extension::xfixes);
  if (xfixes.isPresent && type == xfixes.firstEvent + XCB_XFIXES_CURSOR_NOTIFY) {
    isShapeKnown_ = false;
    return true;
  }
  if (inputOpcode_ == 0 || type != XCB_GE_GENERIC) {
    return false;
  }
  const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
  return generic.extension == inputOpcode_ && generic.event_type == XCB_INPUT_RAW_MOTION;
}

void Cursor::request() {
  pointer_ = xcb_query_pointer(connection_.get(), connection_.root());
  if (!isShapeKnown_ && connection_.extension(Extension::xfixes).isPresent) {
    image_ = xcb_xfixes_get_cursor_image(connection_.get());
  }
}

void Cursor::collect() {
  if (!pointer_) {
    return;
  }
  const auto pointer = connection_.reply(xcb_query_pointer_reply, *pointer_);
  pointer_.reset();
  if (pointer) {
    x_ = pointer->root_x;
    y_ = pointer->root_y;
  }
  if (image_) {
    takeShape();
  }
}

void Cursor::takeShape() {
  Owned<xcb_generic_error_t> refusal;
  const auto image =
      connection_.reply(xcb_xfixes_get_cursor_image_reply, *std::exchange(image_, std::nullopt), &refusal);
  isShapeKnown_ = true;
  if (image) {
    width_ = image->width;
    height_ = image->height;
    hotX_ = image->xhot;
    hotY_ = image->yhot;
    const auto* first = xcb_xfixes_get_cursor_image_cursor_image(image.get());
    pixels_.assign(first, first + xcb_xfixes_get_cursor_image_cursor_image_length(image.get()));
  } else if (refusal->error_code == XCB_ACCESS) {
    takeArrow();
  } else { // as long as no client has given the pointer a shape, it is not to be seen
    width_ = height_ = 0;
  }
}

// The server may keep to itself what a pointer looks like whose client has gone, as one that sets the
// pointer of the screen's background and ends. It is there all the same.
void Cursor::takeArrow() {
  width_ = arrowWidth;
  height_ = static_cast<std::int32_t>(arrow.size());
  hotX_ = hotY_ = 0;
  pixels_.clear();
  for (const auto row : arrow) {
    for (const auto dot : row) {
      pixels_.push_back(dot == '#' ? 0xFF000000 : dot == '.' ? 0xFFFFFFFF : 0);
    }
  }
}

PixelRect Cursor::bounds() const {
  return {x_ - hotX_, y_ - hotY_, width_, height_};
}

void Cursor::blendOver(const pixels::Canvas& canvas, std::int32_t left, std::int32_t top) const {
  const auto at = bounds();
  if (!at.isEmpty()) {
    const PictureView picture{reinterpret_cast<const std::uint8_t*>(pixels_.data()), width_, height_,
                              std::ptrdiff_t{width_} * 4, PixelFormat::bgra8Premultiplied};
    pixels::blendOver(picture, canvas, at.x - left, at.y - top);
  }
}

} // namespace tessarin::x11
