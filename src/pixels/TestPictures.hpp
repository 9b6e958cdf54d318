#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/RoundedRect.hpp"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace tessarin::pixels {

// A picture of noise for tests, that begins at an odd address and has a stride beyond its width.
class TestPicture {
 public:
  TestPicture(int width, int height, int offset, int slack, unsigned seed)
      : width_(width), height_(height), offset_(offset), stride_(width * 4 + slack),
        bytes_(static_cast<std::size_t>(offset + stride_ * height)) {
    std::minstd_rand random(seed);
    for (std::uint8_t& byte : bytes_) {
      const auto value = random() >> 8;
      byte = static_cast<std::uint8_t>(value % 5 == 0 ? (value & 256 ? 255 : 0) : value);
    }
  }

  Canvas canvas() { return {bytes_.data() + offset_, width_, height_, stride_}; }
  PictureView view() const { return {bytes_.data() + offset_, width_, height_, stride_}; }
  std::uint8_t* pixel(int x, int y) { return bytes_.data() + offset_ + y * stride_ + x * 4; }
  const std::uint8_t* pixel(int x, int y) const { return bytes_.data() + offset_ + y * stride_ + x * 4; }
  std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  int width_, height_, offset_;
  std::ptrdiff_t stride_;
  std::vector<std::uint8_t> bytes_;
};

using CoveredLine = std::vector<std::uint8_t>;

// Which share of each pixel the rectangle covers, line by line of a target of that size.
inline std::vector<CoveredLine> covered(const RoundedRect& rect, int width, int height) {
  std::vector<CoveredLine> lines;
  lines.reserve(static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    lines.emplace_back(static_cast<std::size_t>(width), std::uint8_t{77}); // to be overwritten
    rect.cover(y, lines.back());
  }
  return lines;
}

} // namespace tessarin::pixels
