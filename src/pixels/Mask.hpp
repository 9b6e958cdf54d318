#pragma once

#include "pixels/Ellipse.hpp"
#include "pixels/RoundedRect.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessarin::pixels {

// How much of each pixel a shape covers, 0 to 255 by the exact area. Lines that are alike are kept once.
// Immutable after construction, any thread; making it throws std::bad_alloc.
class Mask {
 public:
  // The size in pixels, and the shape on them.
  Mask(std::int32_t width, std::int32_t height, const RoundedRect& shape);
  Mask(std::int32_t width, std::int32_t height, const Ellipse& shape);

  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  // One byte a pixel.
  const std::uint8_t* row(std::int32_t y) const {
    return shares_.data() + lines_[static_cast<std::size_t>(y)] * static_cast<std::size_t>(width_);
  }

 private:
  template<class Shape> void addLines(const Shape& shape);

  std::int32_t width_, height_;
  std::vector<std::size_t> lines_; // which of those kept
  std::vector<std::uint8_t> shares_;
};

} // namespace tessarin::pixels
