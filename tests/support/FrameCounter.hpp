#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>

// A number drawn as black and white blocks, so that a machine reads it back from pixels, also from ones that
// have been through a lossy coder: 40 blocks of 16 by 16 pixels in 4 rows of 10, the number's 32 bits from
// the highest and then 8 bits of checksum, white for 1.
namespace tessarin::frameCounter {

inline constexpr int blockSize = 16;
inline constexpr int columns = 10;
inline constexpr int rows = 4;
inline constexpr int width = columns * blockSize;
inline constexpr int height = rows * blockSize;

constexpr std::uint8_t checksum(std::uint32_t number) {
  return static_cast<std::uint8_t>(0xA5U ^ number ^ (number >> 8U) ^ (number >> 16U) ^ (number >> 24U));
}

// Whether the block at the place, row by row, is white.
constexpr bool isWhite(std::uint32_t number, int block) {
  const std::uint64_t bits = (std::uint64_t{number} << 8U) | checksum(number);
  return ((bits >> static_cast<unsigned>(columns * rows - 1 - block)) & 1U) != 0;
}

// Reads the counter whose top left corner lies at (left, top). Nothing when it does not lie inside the
// picture, a block is neither black nor white, or the checksum is wrong.
inline std::optional<std::uint32_t> read(const PictureView& picture, int left = 0, int top = 0) {
  if (left < 0 || top < 0 || left + width > picture.width || top + height > picture.height) {
    return std::nullopt;
  }
  std::uint64_t bits = 0;
  for (int block = 0; block < columns * rows; ++block) {
    constexpr int margin = 4;
    constexpr int probe = blockSize - 2 * margin;
    const int x = left + block % columns * blockSize + margin;
    const int y = top + block / columns * blockSize + margin;
    int sum = 0;
    for (int row = 0; row < probe; ++row) {
      const auto* pixel = picture.data + (y + row) * picture.stride + static_cast<std::ptrdiff_t>(x) * 4;
      for (int column = 0; column < probe; ++column, pixel += 4) {
        sum += pixel[0] + pixel[1] + pixel[2];
      }
    }
    const int mean = sum / (probe * probe * 3);
    if (mean > 80 && mean < 176) {
      return std::nullopt;
    }
    bits = (bits << 1U) | (mean >= 176 ? 1U : 0U);
  }
  const auto number = static_cast<std::uint32_t>(bits >> 8U);
  return checksum(number) == static_cast<std::uint8_t>(bits) ? std::optional(number) : std::nullopt;
}

} // namespace tessarin::frameCounter
