#include "pixels/Mosaic.hpp"

#include "pixels/Compose.hpp"
#include "pixels/Kernels.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace tessarin::pixels {

namespace {

constexpr std::size_t pixelBytes = 4;

// The mean of the first `width` of the sums of pixels, each of which is of `height` pixels.
void meanOf(const std::uint32_t* sums, std::int32_t width, std::int32_t height, std::uint8_t* mean) {
  std::uint64_t totals[pixelBytes] = {};
  for (std::size_t i = 0; i < static_cast<std::size_t>(width) * pixelBytes; i += pixelBytes)
    for (std::size_t channel = 0; channel < pixelBytes; ++channel)
      totals[channel] += sums[i + channel];
  const auto count = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
  for (std::size_t channel = 0; channel < pixelBytes; ++channel)
    mean[channel] = static_cast<std::uint8_t>((totals[channel] + count / 2) / count);
}

} // namespace

void Mosaic::setEdges(std::int32_t from, std::int32_t to, std::int32_t length, double side, double center,
                      std::vector<std::int32_t>& edges) {
  // The first pixel whose centre is in this square or a later one. Exact edges between pixels count as that,
  // whatever arithmetic makes of them.
  const auto edgeOf = [&](double square) {
    const double place = std::ceil(center + (square - 0.5) * side - 0.5 - 1e-6);
    return static_cast<std::int32_t>(std::clamp<double>(place, 0, length));
  };
  edges.clear();
  double square = std::floor((from + 0.5 - center) / side + 0.5);
  while (edgeOf(square) > from)
    --square;
  while (edgeOf(square + 1) <= from)
    ++square;
  edges.push_back(edgeOf(square));
  while (edges.back() < to) {
    ++square;
    if (const std::int32_t edge = edgeOf(square); edge > edges.back())
      edges.push_back(edge);
  }
}

void Mosaic::draw(const PictureView& source, const PixelArea& area, const MosaicGrid& grid,
                  const Canvas& target) {
  if (area.isEmpty())
    return;
  const double farthest = 1e9;
  const double side = std::clamp(grid.side, 1.0, farthest);
  if (!(std::abs(grid.centerX) <= farthest && std::abs(grid.centerY) <= farthest && side >= 1)) {
    if (target.data != partOf(source, area).data)
      copyPixels(partOf(source, area), target, 0, 0);
    return;
  }
  setEdges(area.left, area.right, source.width, side, grid.centerX, columns_);
  setEdges(area.top, area.bottom, source.height, side, grid.centerY, lines_);
  for (std::size_t i = 0; i + 1 < lines_.size(); ++i)
    drawSquares(source, area, lines_[i], lines_[i + 1], target);
}

// All rows of the squares are read before one is written.
void Mosaic::drawSquares(const PictureView& source, const PixelArea& area, std::int32_t top,
                         std::int32_t bottom, const Canvas& target) {
  const std::int32_t first = columns_.front();
  const std::size_t bytes = static_cast<std::size_t>(columns_.back() - first) * pixelBytes;
  sums_.assign(bytes, 0);
  for (std::int32_t y = top; y < bottom; ++y)
    kernels().addRow(rowOf(source, y) + static_cast<std::ptrdiff_t>(first) * 4, bytes, sums_.data());
  const std::int32_t from = std::max(top, area.top) - area.top;
  const std::int32_t to = std::min(bottom, area.bottom) - area.top;
  std::uint8_t* const row = target.row(from);
  for (std::size_t i = 0; i + 1 < columns_.size(); ++i) {
    std::uint8_t mean[pixelBytes];
    meanOf(sums_.data() + static_cast<std::size_t>(columns_[i] - first) * pixelBytes,
           columns_[i + 1] - columns_[i], bottom - top, mean);
    for (std::int32_t x = std::max(columns_[i], area.left); x < std::min(columns_[i + 1], area.right); ++x)
      std::memcpy(row + static_cast<std::ptrdiff_t>(x - area.left) * 4, mean, pixelBytes);
  }
  for (std::int32_t y = from + 1; y < to; ++y)
    std::memcpy(target.row(y), row, static_cast<std::size_t>(area.width()) * pixelBytes);
}

} // namespace tessarin::pixels
