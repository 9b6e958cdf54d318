#include "pixels/ColorConversion.hpp"

#include "pixels/Canvas.hpp"
#include "pixels/Kernels.hpp"

#include <algorithm>
#include <array>

namespace tessarin::pixels {

void convertToI420(const PictureView& source, const I420Planes& target) {
  const Kernels& use = kernels();
  const auto width = static_cast<std::size_t>(source.width);
  for (std::int32_t y = 0; y + 1 < source.height; y += 2)
    use.convertRows(rowOf(source, y), rowOf(source, y + 1), width, target.y + y * target.yStride,
                    target.y + (y + 1) * target.yStride, target.u + y / 2 * target.uStride,
                    target.v + y / 2 * target.vStride);
}

void convertToNv12(const PictureView& source, const Nv12Planes& target) {
  constexpr std::size_t block = 1024; // pixels; the chroma of one stays in the nearest cache
  std::array<std::uint8_t, block / 2> cb;
  std::array<std::uint8_t, block / 2> cr;
  const Kernels& use = kernels();
  const auto width = static_cast<std::size_t>(source.width);
  for (std::int32_t y = 0; y + 1 < source.height; y += 2) {
    std::uint8_t* topLuma = target.y + y * target.yStride;
    std::uint8_t* uv = target.uv + y / 2 * target.uvStride;
    for (std::size_t x = 0; x < width; x += block) {
      const std::size_t pixels = std::min(block, width - x);
      use.convertRows(rowOf(source, y) + 4 * x, rowOf(source, y + 1) + 4 * x, pixels, topLuma + x,
                      topLuma + target.yStride + x, cb.data(), cr.data());
      for (std::size_t i = 0; i < pixels / 2; ++i) {
        uv[x + 2 * i] = cb[i];
        uv[x + 2 * i + 1] = cr[i];
      }
    }
  }
}

} // namespace tessarin::pixels
