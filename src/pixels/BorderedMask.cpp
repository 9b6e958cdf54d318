#include "pixels/BorderedMask.hpp"

#include "pixels/Kernels.hpp"

#include <algorithm>
#include <cmath>
#include <span>

namespace tessarin::pixels {

BorderedMask::BorderedMask(std::int32_t width, std::int32_t height, const RoundedRect& shape, double border)
    : width_(width), height_(height) {
  const double reach = std::max(shape.radius, border);
  topLines_ = static_cast<std::int32_t>(std::clamp<double>(std::ceil(shape.top + reach), 0, height));
  bottomLines_ = height - static_cast<std::int32_t>(
                              std::clamp<double>(std::floor(shape.bottom - reach), topLines_, height));
  const std::int32_t between = height - topLines_ - bottomLines_;
  const auto lines = static_cast<std::size_t>(topLines_ + std::min(between, 1) + bottomLines_);
  weights_.reserve(lines * static_cast<std::size_t>(width));
  whites_.reserve(lines * static_cast<std::size_t>(width));
  for (std::int32_t y = 0; y < std::min(topLines_ + 1, height - bottomLines_); ++y)
    addLine(y, shape, border);
  for (std::int32_t y = height - bottomLines_; y < height; ++y)
    addLine(y, shape, border);
}

void BorderedMask::addLine(std::int32_t y, const RoundedRect& shape, double border) {
  const std::size_t begin = weights_.size();
  const auto length = static_cast<std::size_t>(width_);
  weights_.resize(begin + length);
  whites_.resize(begin + length);
  const std::span weights = std::span(weights_).subspan(begin, length);
  const std::span whites = std::span(whites_).subspan(begin, length);
  shape.cover(y, weights);
  if (border <= 0)
    return;
  // The picture lies within the shape, so what the shape has beyond it is white.
  std::copy(weights.begin(), weights.end(), whites.begin());
  shape.inset(border).cover(y, weights);
  for (std::size_t x = 0; x < length; ++x) {
    weights[x] = std::min(weights[x], whites[x]);
    whites[x] = static_cast<std::uint8_t>(whites[x] - weights[x]);
  }
}

BorderedMask::Line BorderedMask::lineOf(std::int32_t y) const {
  const std::int32_t between = height_ - topLines_ - bottomLines_;
  const std::int32_t kept = y < topLines_ + between ? std::min(y, topLines_) : y - std::max(between - 1, 0);
  const auto begin = static_cast<std::ptrdiff_t>(kept) * width_;
  return {weights_.data() + begin, whites_.data() + begin};
}

void BorderedMask::apply(const Canvas& picture, bool isOpaque) const {
  for (std::int32_t y = 0; y < height_; ++y) {
    const Line line = lineOf(y);
    kernels().maskRow(picture.row(y), line.weights, line.whites, static_cast<std::size_t>(width_), isOpaque);
  }
}

} // namespace tessarin::pixels
