#include "pixels/Compose.hpp"

#include "pixels/Kernels.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace tessarin::pixels {

namespace {

constexpr std::ptrdiff_t pixelBytes = 4;
constexpr std::int64_t weightsAtOnce = 512;

// Rounded to nearest.
std::uint8_t weightOf(std::uint8_t share, unsigned opacity) {
  const auto product = static_cast<std::uint16_t>(share * opacity + 128);
  return static_cast<std::uint8_t>((product + (product >> 8)) >> 8);
}

// Where a picture at (x, y) lies on a target, in the target's coordinates; 64 bits, as positions are
// arbitrary.
struct Overlap {
  std::int64_t left, top, right, bottom;
  bool isEmpty() const { return left >= right || top >= bottom; }
};

Overlap overlapOf(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y) {
  return {std::max<std::int64_t>(x, 0), std::max<std::int64_t>(y, 0),
          std::min<std::int64_t>(std::int64_t{x} + source.width, target.width),
          std::min<std::int64_t>(std::int64_t{y} + source.height, target.height)};
}

template<class Row>
void forEachRow(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y,
                const Row& row) {
  const Overlap overlap = overlapOf(source, target, x, y);
  if (overlap.isEmpty())
    return;
  for (std::int64_t line = overlap.top; line < overlap.bottom; ++line)
    row(source.data + (line - y) * source.stride + (overlap.left - x) * pixelBytes,
        target.data + line * target.stride + overlap.left * pixelBytes,
        static_cast<std::size_t>(overlap.right - overlap.left));
}

} // namespace

void copyPixels(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y) {
  forEachRow(source, target, x, y, [](const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) {
    std::memcpy(to, from, pixels * pixelBytes);
  });
}

void blendOver(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y) {
  const bool keepsFourth = target.format == PixelFormat::bgrx8;
  forEachRow(source, target, x, y, [&](const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) {
    kernels().blendRow(from, to, pixels, keepsFourth);
  });
}

void blendOver(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y,
               const LayerWeight& weight) {
  const auto opacity = static_cast<unsigned>(std::lround(std::clamp(weight.opacity, 0.0, 1.0) * 255));
  const bool keepsFourth = target.format == PixelFormat::bgrx8;
  const bool isOpaque = source.format == PixelFormat::bgrx8;
  const Overlap overlap = overlapOf(source, target, x, y);
  if (overlap.isEmpty() || opacity == 0)
    return;
  std::array<std::uint8_t, weightsAtOnce> weights;
  weights.fill(static_cast<std::uint8_t>(opacity));
  for (std::int64_t line = overlap.top; line < overlap.bottom; ++line)
    for (std::int64_t column = overlap.left; column < overlap.right; column += weightsAtOnce) {
      const auto pixels =
          static_cast<std::size_t>(std::min<std::int64_t>(overlap.right - column, weightsAtOnce));
      const std::uint8_t* shares = weights.data();
      if (weight.mask != nullptr) {
        shares = weight.mask->row(static_cast<std::int32_t>(line - y)) + (column - x);
        if (opacity < 255) {
          std::transform(shares, shares + pixels, weights.begin(),
                         [&](std::uint8_t share) { return weightOf(share, opacity); });
          shares = weights.data();
        }
      }
      kernels().blendMaskedRow(source.data + (line - y) * source.stride + (column - x) * pixelBytes, shares,
                               target.data + line * target.stride + column * pixelBytes, pixels, isOpaque,
                               keepsFourth);
    }
}

void extendEdges(const Canvas& canvas, const Borders& borders) {
  const std::int32_t right = canvas.width - borders.right;
  const std::int32_t bottom = canvas.height - borders.bottom;
  const auto fill = [](std::uint8_t* row, std::int32_t from, std::int32_t to, std::int32_t pixel) {
    for (std::int32_t x = from; x < to; ++x)
      std::memcpy(row + x * pixelBytes, row + pixel * pixelBytes, pixelBytes);
  };
  for (std::int32_t y = borders.top; y < bottom; ++y) {
    fill(canvas.row(y), 0, borders.left, borders.left);
    fill(canvas.row(y), right, canvas.width, right - 1);
  }
  const std::size_t rowBytes = static_cast<std::size_t>(canvas.width) * pixelBytes;
  for (std::int32_t y = 0; y < borders.top; ++y)
    std::memcpy(canvas.row(y), canvas.row(borders.top), rowBytes);
  for (std::int32_t y = bottom; y < canvas.height; ++y)
    std::memcpy(canvas.row(y), canvas.row(bottom - 1), rowBytes);
}

} // namespace tessarin::pixels
