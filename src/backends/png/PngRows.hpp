#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>

// The rows of a picture as a PNG file holds them: samples of 8 bits in the order R, G, B or R, G, B, A with
// straight alpha, each less what its neighbours let expect. Pure, any thread.
namespace tessarin::png {

// What is expected of a sample: that of the pixel to the left, that above, or the mean of both, rounded down.
// A neighbour outside the picture counts as 0. The values stand before each row of a file.
enum class RowFilter : std::uint8_t { left = 1, above = 2, average = 3 };

// 3 for an opaque picture, 4 for one with alpha.
std::size_t bytesPerPixel(PixelFormat format);

// A row with its neighbour above, both in the picture's format; none above the topmost row.
struct SourceRow {
  const std::uint8_t* pixels = nullptr;
  const std::uint8_t* above = nullptr;
  PixelFormat format = PixelFormat::bgrx8;
  std::size_t width = 0;
};

// A row of a picture, counted from the top.
inline SourceRow sourceRow(const PictureView& picture, std::size_t row) {
  const std::uint8_t* const pixels = picture.data + static_cast<std::ptrdiff_t>(row) * picture.stride;
  return {pixels, row > 0 ? pixels - picture.stride : nullptr, picture.format,
          static_cast<std::size_t>(picture.width)};
}

// One row without its filter byte. The destination has room for exactly width * bytesPerPixel bytes.
void filterRow(const SourceRow& row, RowFilter filter, std::uint8_t* destination);

// The same in plain C++ only, pixel by pixel.
void filterRowPortably(const SourceRow& row, RowFilter filter, std::uint8_t* destination);

// How far the bytes are from 0, taken as signed, on the whole: the less, the better a filter suits its row.
std::uint64_t magnitude(const std::uint8_t* bytes, std::size_t count);

} // namespace tessarin::png
