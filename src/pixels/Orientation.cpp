#include "pixels/Orientation.hpp"

#include "pixels/Kernels.hpp"

#include <cmath>
#include <cstring>

namespace tessarin::pixels {

std::optional<Orientation> orientationOf(const AffineTransform& transform, double longestSide) {
  const double little = 1 / (1024 * longestSide);
  const auto isNothing = [&](double factor) { return std::abs(factor) < little; };
  const auto isOne = [&](double factor) { return std::abs(std::abs(factor) - 1) < little; };
  if (isOne(transform.a) && isOne(transform.d) && isNothing(transform.b) && isNothing(transform.c))
    return Orientation{false, transform.a < 0, transform.d < 0};
  if (isOne(transform.b) && isOne(transform.c) && isNothing(transform.a) && isNothing(transform.d))
    return Orientation{true, transform.c < 0, transform.b < 0};
  return std::nullopt;
}

void orientPixels(const PictureView& source, const Orientation& orientation, const Canvas& target) {
  const auto width = static_cast<std::size_t>(source.width);
  const auto height = static_cast<std::size_t>(source.height);
  // Flipping the target is to begin with its last row; mirroring a transposed one is the same of the source.
  std::uint8_t* to = orientation.isFlipped ? target.row(target.height - 1) : target.data;
  const std::ptrdiff_t toStride = orientation.isFlipped ? -target.stride : target.stride;
  if (orientation.isTransposed) {
    const std::uint8_t* from = orientation.isMirrored ? rowOf(source, source.height - 1) : source.data;
    const std::ptrdiff_t fromStride = orientation.isMirrored ? -source.stride : source.stride;
    kernels().transpose(from, fromStride, width, height, to, toStride);
    return;
  }
  for (std::int32_t y = 0; y < source.height; ++y) {
    if (orientation.isMirrored)
      kernels().reverseRow(rowOf(source, y), width, to + y * toStride);
    else
      std::memcpy(to + y * toStride, rowOf(source, y), width * 4);
  }
}

} // namespace tessarin::pixels
