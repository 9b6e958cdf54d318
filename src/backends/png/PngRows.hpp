#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

// The rows of a picture as a PNG file's data stream holds them: each a filter byte and its samples, 8 bits
// each, in the order R, G, B or R, G, B, A with straight alpha. All rows take the filter `Sub`: each
// sample less the one of the pixel to its left. Pure, any thread.
namespace tessarin::png {

// 3 for an opaque picture, 4 for one with alpha.
std::size_t bytesPerPixel(PixelFormat format);

// One row without its filter byte. The destination has room for width * bytesPerPixel bytes.
void filterRow(const std::uint8_t* source, PixelFormat format, std::size_t width, std::uint8_t* destination);

// The same for an opaque picture, in plain C++ only.
void filterOpaqueRowPortably(const std::uint8_t* source, std::size_t width, std::uint8_t* destination);

struct FilteredRows {
  std::unique_ptr<std::uint8_t[]> bytes;
  std::size_t size = 0;
};

FilteredRows filteredRows(const PictureView& picture);

} // namespace tessarin::png
