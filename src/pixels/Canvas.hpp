#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>

namespace tessarin::pixels {

// Pixels that may be written: a PictureView's counterpart. Does not own them. Views and canvases may have
// any stride of at least their row's bytes, and any alignment.
struct Canvas {
  std::uint8_t* data = nullptr;
  std::int32_t width = 0;    // pixels
  std::int32_t height = 0;   // pixels
  std::ptrdiff_t stride = 0; // bytes from one row to the next
  PixelFormat format = PixelFormat::bgrx8;

  std::uint8_t* row(std::int32_t y) const { return data + y * stride; }
  PictureView view() const { return {data, width, height, stride, format}; }
};

inline const std::uint8_t* rowOf(const PictureView& view, std::int32_t y) {
  return view.data + y * view.stride;
}

} // namespace tessarin::pixels
