#include "pixels/Mask.hpp"

#include <algorithm>
#include <span>

namespace tessarin::pixels {

Mask::Mask(std::int32_t width, std::int32_t height, const RoundedRect& shape)
    : width_(width), height_(height) {
  addLines(shape);
}

Mask::Mask(std::int32_t width, std::int32_t height, const Ellipse& shape) : width_(width), height_(height) {
  addLines(shape);
}

template<class Shape> void Mask::addLines(const Shape& shape) {
  const auto length = static_cast<std::size_t>(width_);
  std::vector<std::uint8_t> line(length);
  std::size_t kept = 0;
  lines_.reserve(static_cast<std::size_t>(height_));
  for (std::int32_t y = 0; y < height_; ++y) {
    shape.cover(y, line);
    const bool isNew = kept == 0 || !std::equal(line.begin(), line.end(),
                                                shares_.end() - static_cast<std::ptrdiff_t>(length));
    if (isNew) {
      shares_.insert(shares_.end(), line.begin(), line.end());
      ++kept;
    }
    lines_.push_back(kept - 1);
  }
}

} // namespace tessarin::pixels
