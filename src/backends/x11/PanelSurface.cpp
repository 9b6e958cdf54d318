#include "backends/x11/PanelSurface.hpp"

#include "backends/x11/PanelShape.hpp"
#include "ports/Capture.hpp"

#include <xcb/shm.h>

#include <algorithm>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::int32_t longestSide = 32'767;
// A request of so many stays below what every server takes.
constexpr std::size_t rectanglesAtOnce = 8'000;
// A socket counts as full when a fourth of it is, about 50,000 bytes; so much of each of two panels may be
// unread.
constexpr std::size_t bytesAtOnce = 16'000;

PictureView limited(PictureView view) {
  view.width = view.data ? std::clamp(view.width, 0, longestSide) : 0;
  view.height = view.data ? std::clamp(view.height, 0, longestSide) : 0;
  return view;
}

std::vector<xcb_rectangle_t> protocolRectangles(const std::vector<PixelRect>& rectangles) {
  std::vector<xcb_rectangle_t> result;
  result.reserve(rectangles.size());
  for (const auto& each : rectangles) {
    result.push_back({static_cast<std::int16_t>(each.x), static_cast<std::int16_t>(each.y),
                      static_cast<std::uint16_t>(each.width), static_cast<std::uint16_t>(each.height)});
  }
  return result;
}

} // namespace

PanelSurface::PanelSurface(Connection& connection, PixelReader& reader, xcb_window_t window,
                           std::uint8_t depth, bool takesPointer)
    : connection_(connection), reader_(reader), window_(window), depth_(depth), takesPointer_(takesPointer),
      graphics_(xcb_generate_id(connection.get())) {
  xcb_create_gc(connection.get(), graphics_, window, 0, nullptr);
  applyShapes();
}

PanelSurface::~PanelSurface() {
  if (pixmap_ != XCB_NONE) {
    xcb_free_pixmap(connection_.get(), pixmap_);
  }
  xcb_free_gc(connection_.get(), graphics_);
}

void PanelSurface::show(const Picture& picture, bool isMixed) {
  if (reading_) {
    next_ = Kept{picture, isMixed};
  } else {
    take({picture, isMixed});
  }
}

void PanelSurface::setSize(std::int32_t width, std::int32_t height) {
  width_ = width;
  height_ = height;
  applyShapes();
}

bool PanelSurface::hasRead(const xcb_generic_event_t& event) const {
  const auto type = event.response_type & 0x7F;
  if (type == 0) {
    return event.full_sequence == reading_;
  }
  const auto& extension = connection_.extension(Extension::shm);
  if (extension.isPresent && type == extension.firstEvent + XCB_SHM_COMPLETION) {
    return reinterpret_cast<const xcb_shm_completion_event_t&>(event).drawable == pixmap_;
  }
  return type == XCB_CLIENT_MESSAGE &&
         reinterpret_cast<const xcb_client_message_event_t&>(event).window == window_;
}

bool PanelSurface::handle(const xcb_generic_event_t& event) {
  if (!reading_ || !hasRead(event)) {
    return false;
  }
  reading_.reset();
  if (rowsPut_ < pixmapHeight_) {
    putRows();
  } else if (const auto next = std::exchange(next_, std::nullopt)) {
    take(*next);
  }
  return true;
}

void PanelSurface::take(const Kept& kept) {
  const auto view = limited(kept.picture.view);
  seen_.clear();
  touched_.clear();
  if (view.width == 0 || view.height == 0) {
    applyShapes();
    return;
  }
  reserve(view.width, view.height);
  touched_ = opaqueShape(view);
  if (kept.isMixed) {
    copyPicture(view, buffer_.data());
    seen_.push_back({0, 0, view.width, view.height});
  } else {
    copyOpaquePicture(view, buffer_.data());
    seen_ = touched_;
  }
  put();
}

// Room for a picture of that size in the server and in the memory shared with it.
void PanelSurface::reserve(std::int32_t width, std::int32_t height) {
  if (width != pixmapWidth_ || height != pixmapHeight_) {
    if (pixmap_ != XCB_NONE) {
      xcb_free_pixmap(connection_.get(), pixmap_);
    }
    pixmap_ = xcb_generate_id(connection_.get());
    xcb_create_pixmap(connection_.get(), depth_, pixmap_, window_, static_cast<std::uint16_t>(width),
                      static_cast<std::uint16_t>(height));
    pixmapWidth_ = width;
    pixmapHeight_ = height;
  }
  const auto bytes = packedBytes({0, 0, width, height});
  if (buffer_.size() < bytes) {
    try {
      buffer_ = reader_.makeBuffer(bytes);
    } catch (const CaptureFailure&) {
      throw DesktopFailure();
    }
  }
}

// From the memory to the server, which tells when it has read it.
void PanelSurface::put() {
  rowsPut_ = 0;
  if (buffer_.segment() == 0) {
    putRows();
    return;
  }
  const auto w = static_cast<std::uint16_t>(pixmapWidth_);
  const auto h = static_cast<std::uint16_t>(pixmapHeight_);
  reading_ = xcb_shm_put_image(connection_.get(), pixmap_, graphics_, w, h, 0, 0, w, h, 0, 0, depth_,
                               XCB_IMAGE_FORMAT_Z_PIXMAP, 1, buffer_.segment(), 0)
                 .sequence;
  rowsPut_ = pixmapHeight_;
  present();
}

// Without shared memory the picture goes through the connection piece by piece, each when the server has read
// the one before: a server that does not read keeps nobody waiting.
void PanelSurface::putRows() {
  const auto rowBytes = static_cast<std::size_t>(pixmapWidth_) * 4;
  const auto rows = static_cast<std::int32_t>(std::max<std::size_t>(1, bytesAtOnce / rowBytes));
  const auto count = std::min(rows, pixmapHeight_ - rowsPut_);
  xcb_put_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap_, graphics_,
                static_cast<std::uint16_t>(pixmapWidth_), static_cast<std::uint16_t>(count), 0,
                static_cast<std::int16_t>(rowsPut_), 0, depth_,
                static_cast<std::uint32_t>(rowBytes * static_cast<std::size_t>(count)),
                buffer_.data() + static_cast<std::size_t>(rowsPut_) * rowBytes);
  rowsPut_ += count;
  reading_ = askForAnswer();
  if (rowsPut_ == pixmapHeight_) {
    present();
  }
}

// The request that has an answer when the server has got so far: a message to ourselves.
std::uint32_t PanelSurface::askForAnswer() {
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = window_;
  message.type = connection_.atom(Atom::manager);
  return xcb_send_event(connection_.get(), 0, window_, XCB_EVENT_MASK_NO_EVENT,
                        reinterpret_cast<const char*>(&message))
      .sequence;
}

// Shows what has been put.
void PanelSurface::present() {
  // A server may have made a copy of the background, so that it is told again.
  xcb_change_window_attributes(connection_.get(), window_, XCB_CW_BACK_PIXMAP, &pixmap_);
  applyShapes();
  xcb_clear_area(connection_.get(), 0, window_, 0, 0, 0, 0);
}

void PanelSurface::applyShapes() {
  applyShape(XCB_SHAPE_SK_BOUNDING, clipped(seen_, width_, height_), boundingShape_);
  applyShape(XCB_SHAPE_SK_INPUT,
             takesPointer_ ? clipped(touched_, width_, height_) : std::vector<PixelRect>(), inputShape_);
}

void PanelSurface::applyShape(xcb_shape_sk_t kind, const std::vector<PixelRect>& wanted,
                              std::optional<std::vector<PixelRect>>& present) {
  if (present == wanted) {
    return;
  }
  const auto rectangles = protocolRectangles(wanted);
  const auto send = [&](xcb_shape_op_t operation, std::size_t first, std::size_t count) {
    xcb_shape_rectangles(connection_.get(), operation, kind, XCB_CLIP_ORDERING_YX_BANDED, window_, 0, 0,
                         static_cast<std::uint32_t>(count), rectangles.data() + first);
  };
  send(XCB_SHAPE_SO_SET, 0, std::min(rectanglesAtOnce, rectangles.size()));
  for (std::size_t first = rectanglesAtOnce; first < rectangles.size(); first += rectanglesAtOnce) {
    send(XCB_SHAPE_SO_UNION, first, std::min(rectanglesAtOnce, rectangles.size() - first));
  }
  present = wanted;
}

} // namespace tessarin::x11
