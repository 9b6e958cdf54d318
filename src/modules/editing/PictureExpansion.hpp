#pragma once

#include "pixels/Canvas.hpp"

#include <cstddef>
#include <cstdint>

namespace tessarin::editing {

// Planes of Y'CbCr, 8 bits a sample or up to 16 in two bytes. Does not own them.
struct YuvPlanes {
  const std::uint8_t* y = nullptr;
  const std::uint8_t* u = nullptr; // Cb
  const std::uint8_t* v = nullptr; // Cr
  std::ptrdiff_t yStride = 0;      // bytes
  std::ptrdiff_t uStride = 0;
  std::ptrdiff_t vStride = 0;
  int bits = 8;         // of a sample
  int chromaShiftX = 1; // 1 where there is one chroma sample for two pixels
  int chromaShiftY = 1;
};

enum class YuvMatrix : std::uint8_t { bt601, bt709, bt2020 };

// Fills the canvas, bgrx8: the pixels by ITU-R BT.601, BT.709 or BT.2020 with samples of video range or of
// full range; chroma is repeated, the counterpart of chroma that is the mean of its pixels. Within one of the
// exact value. The fourth byte is 255. No state; any thread; nothing fails.
void expandToBgrx(const YuvPlanes& planes, YuvMatrix matrix, bool isFullRange, const pixels::Canvas& canvas);

} // namespace tessarin::editing
