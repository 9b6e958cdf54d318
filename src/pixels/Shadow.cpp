#include "pixels/Shadow.hpp"

#include "pixels/Compose.hpp"
#include "pixels/Fill.hpp"
#include "pixels/GaussianBlur.hpp"
#include "pixels/Mask.hpp"

#include <cmath>
#include <cstddef>

namespace tessarin::pixels {

namespace {

RoundedRect moved(const RoundedRect& shape, double x, double y) {
  return {shape.left + x, shape.top + y, shape.right + x, shape.bottom + y, shape.radius};
}

Canvas canvasOf(std::vector<std::uint8_t>& bytes, std::int32_t width, std::int32_t height) {
  const std::size_t stride = static_cast<std::size_t>(width) * 4;
  bytes.assign(stride * static_cast<std::size_t>(height), 0);
  return {bytes.data(), width, height, static_cast<std::ptrdiff_t>(stride), PixelFormat::bgra8Premultiplied};
}

} // namespace

Shadow::Shadow(std::int32_t canvasWidth, std::int32_t canvasHeight, const Form& form) {
  const RoundedRect shape = moved(form.shape, form.offsetX, form.offsetY);
  const std::int32_t reach = GaussianBlur::reach(form.deviation);
  area_ = touchedPixels({shape.left - reach, shape.top - reach, shape.right - shape.left + 2.0 * reach,
                         shape.bottom - shape.top + 2.0 * reach},
                        canvasWidth, canvasHeight);
  if (area_.isEmpty())
    return;
  // With as much around as takes part.
  std::vector<std::uint8_t> bytes;
  const Canvas layer = canvasOf(bytes, area_.width() + 2 * reach, area_.height() + 2 * reach);
  const Mask mask(layer.width, layer.height, moved(shape, reach - area_.left, reach - area_.top));
  blendColor(layer, 0, 0, mask, form.color);
  GaussianBlur().blur(layer.view(), {reach, reach, reach + area_.width(), reach + area_.height()},
                      form.deviation, canvasOf(pixels_, area_.width(), area_.height()));
}

void Shadow::blendOnto(const Canvas& canvas) const {
  if (area_.isEmpty())
    return;
  const PictureView view{pixels_.data(), area_.width(), area_.height(),
                         static_cast<std::ptrdiff_t>(area_.width()) * 4, PixelFormat::bgra8Premultiplied};
  blendOver(view, canvas, area_.left, area_.top);
}

} // namespace tessarin::pixels
