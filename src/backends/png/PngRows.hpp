#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>

// The rows of a picture as a PNG file holds them: samples of 8 bits in the order R, G, B or R, G, B, A with
// straight alpha, each less the sample of the pixel to its left. Pure, any thread.
namespace tessarin::png {

// The filter's number, which stands before each row.
constexpr std::uint8_t filterSub = 1;

// 3 for an opaque picture, 4 for one with alpha.
std::size_t bytesPerPixel(PixelFormat format);

// One row without its filter byte. The destination has room for exactly width * bytesPerPixel bytes.
void filterRow(const std::uint8_t* source, PixelFormat format, std::size_t width, std::uint8_t* destination);

// The same for an opaque picture, in plain C++ only.
void filterOpaqueRowPortably(const std::uint8_t* source, std::size_t width, std::uint8_t* destination);

} // namespace tessarin::png
