#include "backends/x11/PanelShape.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace tessarin::x11 {

namespace {

// So far a frame's edge may lie beside a pixel's, of which it was computed, without touching the next one.
constexpr double tolerance = 1.0 / 4096;
constexpr double lowest = std::numeric_limits<std::int16_t>::min();
constexpr double highest = std::numeric_limits<std::int16_t>::max();

// Pixels looked at together; pictures are mostly opaque or empty over long stretches.
constexpr std::int32_t blockSize = 16;
constexpr std::uint32_t opaque = 255;

// A stretch of a row that is shown.
struct Run {
  std::int32_t first = 0;
  std::int32_t end = 0;
  bool operator==(const Run&) const = default;
};

void append(std::vector<Run>& runs, std::int32_t first, std::int32_t end) {
  if (!runs.empty() && runs.back().end == first) {
    runs.back().end = end;
  } else {
    runs.push_back({first, end});
  }
}

std::uint32_t straight(std::uint32_t value, std::uint32_t alpha) {
  return std::min(opaque, (value * opaque + alpha / 2) / alpha);
}

// One pixel of at least half an alpha, in memory order B, G, R, A.
std::uint32_t shownOpaque(std::uint32_t pixel, std::uint32_t alpha) {
  return straight(pixel & 0xFF, alpha) | straight(pixel >> 8 & 0xFF, alpha) << 8 |
         straight(pixel >> 16 & 0xFF, alpha) << 16 | opaque << 24;
}

// Pixels of a row, looked at together. A shorter rest is filled up with its last pixel, so that all blocks
// are of one length.
struct Block {
  Block(const std::uint8_t* source, std::int32_t size) : count(static_cast<std::size_t>(size)) {
    if (size == blockSize) {
      std::memcpy(values.data(), source, sizeof values);
    } else {
      std::memcpy(values.data(), source, count * 4);
      std::fill(values.begin() + size, values.end(), values[count - 1]);
    }
    for (const auto value : values) {
      all &= value;
      any |= value;
    }
  }
  bool isOpaque() const { return all >> 24 == opaque; }
  // At least half an alpha is the alpha's highest bit.
  bool isShown() const { return all >> 31 != 0; }
  bool isEmpty() const { return any >> 31 == 0; }

  std::array<std::uint32_t, blockSize> values;
  std::size_t count;
  std::uint32_t all = ~std::uint32_t{0};
  std::uint32_t any = 0;
};

// Calls the action with each block of the row, and where it begins.
template<class Action> void forEachBlock(const std::uint8_t* row, std::int32_t width, const Action& action) {
  for (std::int32_t x = 0; x < width; x += blockSize) {
    action(Block(row + std::ptrdiff_t{x} * 4, std::min(blockSize, width - x)), x);
  }
}

void appendShown(Block& block, std::int32_t first, std::vector<Run>& runs) {
  const auto end = first + static_cast<std::int32_t>(block.count);
  if (block.isShown()) {
    append(runs, first, end);
  } else if (!block.isEmpty()) {
    for (auto x = first; x < end; ++x) {
      if (block.values[static_cast<std::size_t>(x - first)] >> 31 != 0) {
        append(runs, x, x + 1);
      }
    }
  }
}

void makeOpaque(Block& block) {
  if (block.isOpaque()) {
    return;
  }
  if (block.isEmpty()) {
    block.values.fill(0);
    return;
  }
  for (auto& pixel : block.values) {
    const auto alpha = pixel >> 24;
    pixel = alpha < 128 ? 0 : shownOpaque(pixel, alpha);
  }
}

} // namespace

PixelRect panelPixels(const RectDTO& frame, double scale) {
  if (!(frame.width > 0) || !(frame.height > 0)) {
    return {};
  }
  const double edges[] = {frame.x * scale, frame.y * scale, (frame.x + frame.width) * scale,
                          (frame.y + frame.height) * scale};
  if (!std::all_of(std::begin(edges), std::end(edges), [](double edge) { return std::isfinite(edge); })) {
    return {};
  }
  const auto pixel = [](double edge) { return static_cast<std::int32_t>(std::clamp(edge, lowest, highest)); };
  const auto left = pixel(std::floor(edges[0] + tolerance));
  const auto top = pixel(std::floor(edges[1] + tolerance));
  const auto right = pixel(std::ceil(edges[2] - tolerance));
  const auto bottom = pixel(std::ceil(edges[3] - tolerance));
  constexpr auto longest = std::numeric_limits<std::int16_t>::max();
  const PixelRect pixels{left, top, std::min<std::int32_t>(right - left, longest),
                         std::min<std::int32_t>(bottom - top, longest)};
  return pixels.isEmpty() ? PixelRect{} : pixels;
}

void copyPicture(const PictureView& picture, std::uint8_t* pixels) {
  const auto bytes = static_cast<std::size_t>(picture.width) * 4;
  for (std::int32_t y = 0; y < picture.height; ++y) {
    std::memcpy(pixels, picture.data + y * picture.stride, bytes);
    pixels += bytes;
  }
}

void copyOpaquePicture(const PictureView& picture, std::uint8_t* pixels) {
  for (std::int32_t y = 0; y < picture.height; ++y) {
    forEachBlock(picture.data + y * picture.stride, picture.width, [&](Block block, std::int32_t x) {
      auto* target = pixels + std::ptrdiff_t{x} * 4;
      makeOpaque(block);
      if (block.count == blockSize) {
        std::memcpy(target, block.values.data(), sizeof block.values);
      } else {
        std::memcpy(target, block.values.data(), block.count * 4);
      }
    });
    pixels += std::ptrdiff_t{picture.width} * 4;
  }
}

std::vector<PixelRect> opaqueShape(const PictureView& picture) {
  std::vector<PixelRect> shape;
  std::vector<Run> band; // of the rectangles that end at the row
  std::vector<Run> runs;
  for (std::int32_t y = 0; y < picture.height; ++y) {
    runs.clear();
    forEachBlock(picture.data + y * picture.stride, picture.width,
                 [&](Block block, std::int32_t x) { appendShown(block, x, runs); });
    if (runs == band) {
      for (auto each = shape.end() - static_cast<std::ptrdiff_t>(band.size()); each != shape.end(); ++each) {
        ++each->height;
      }
      continue;
    }
    for (const auto& run : runs) {
      shape.push_back({run.first, y, run.end - run.first, 1});
    }
    std::swap(band, runs);
  }
  return shape;
}

std::vector<PixelRect> clipped(const std::vector<PixelRect>& rectangles, std::int32_t width,
                               std::int32_t height) {
  std::vector<PixelRect> parts;
  for (const auto& each : rectangles) {
    if (const auto part = each.intersection({0, 0, width, height}); !part.isEmpty()) {
      parts.push_back(part);
    }
  }
  return parts;
}

} // namespace tessarin::x11
