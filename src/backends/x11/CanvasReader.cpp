#include "backends/x11/CanvasReader.hpp"

#include "backends/x11/ExclusionRegion.hpp"
#include "pixels/Compose.hpp"

#include <cstring>

namespace tessarin::x11 {

void clear(const pixels::Canvas& canvas, const PixelRect& rectangle) {
  const auto seen = rectangle.intersection({0, 0, canvas.width, canvas.height});
  for (auto y = seen.y; y < seen.bottom(); ++y) {
    std::memset(canvas.row(y) + std::ptrdiff_t{seen.x} * 4, 0, static_cast<std::size_t>(seen.width) * 4);
  }
}

void CanvasReader::request(xcb_drawable_t drawable, const PixelRect& covered, const PixelRect& wanted,
                           const PixelBuffer& buffer, const pixels::Canvas& canvas) {
  canvas_ = canvas;
  wanted_ = wanted;
  inside_ = wanted.intersection(covered);
  pending_.reset();
  if (inside_.isEmpty()) {
    return;
  }
  // A canvas that is wider by columns yet to be filled takes the pixels beside the rectangle for now.
  PixelRect direct = inside_;
  direct.width = canvas.width;
  isDirect_ = inside_.x == wanted.x && inside_.width == wanted.width && direct.right() <= covered.right();
  const auto& rectangle = isDirect_ ? direct : inside_;
  if (!isDirect_ && packedBytes(inside_) > scratch_.size()) {
    scratch_ = reader_.makeBuffer(packedBytes(inside_));
  }
  const PixelRect local{rectangle.x - covered.x, rectangle.y - covered.y, rectangle.width, rectangle.height};
  const auto offset =
      isDirect_ ? static_cast<std::size_t>(inside_.y - wanted.y) * static_cast<std::size_t>(canvas.stride)
                : 0;
  pending_ = reader_.request(drawable, local, isDirect_ ? buffer : scratch_, offset);
}

bool CanvasReader::collect() {
  if (pending_ && !reader_.collect(*pending_)) {
    return false;
  }
  const PixelRect placed{inside_.x - wanted_.x, inside_.y - wanted_.y, inside_.width, inside_.height};
  if (pending_ && !isDirect_) {
    pixels::copyPixels(packedCanvas(scratch_.data(), inside_.width, inside_.height, canvas_.format).view(),
                       canvas_, placed.x, placed.y);
  }
  Region outside(PixelRect{0, 0, wanted_.width, wanted_.height});
  if (pending_) {
    outside.subtract(placed);
  }
  for (const auto& rectangle : outside.rectangles()) {
    clear(canvas_, rectangle);
  }
  return true;
}

} // namespace tessarin::x11
