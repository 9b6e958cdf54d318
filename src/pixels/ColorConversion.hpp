#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>

// From the screen's B'G'R' to Y'CbCr as video coders take it. Any thread, no state; nothing fails.
//
// The matrix is ITU-R BT.709, the range that of video (Y' 16 to 235, Cb and Cr 16 to 240). Values are the
// exact ones, rounded half up, within an error of 0.012 before rounding. A chroma sample is the mean of its
// two by two pixels, so it is sited at their centre: chroma sample location type 1 of ITU-T H.264 and
// H.265. A stream that is coded from these pictures says so, since its default is type 0.
namespace tessarin::pixels {

// Three planes of 4:2:0: chroma has half of the width and height. Does not own them.
struct I420Planes {
  std::uint8_t* y = nullptr;
  std::uint8_t* u = nullptr;  // Cb
  std::uint8_t* v = nullptr;  // Cr
  std::ptrdiff_t yStride = 0; // bytes
  std::ptrdiff_t uStride = 0;
  std::ptrdiff_t vStride = 0;
};

// Luma, and a plane of interleaved Cb and Cr.
struct Nv12Planes {
  std::uint8_t* y = nullptr;
  std::uint8_t* uv = nullptr;
  std::ptrdiff_t yStride = 0; // bytes
  std::ptrdiff_t uvStride = 0;
};

// The source's width and height are even and at least 2. The fourth byte of a pixel is not looked at, so a
// picture with premultiplied alpha comes out over black. The planes do not overlap the source.
void convertToI420(const PictureView& source, const I420Planes& target);
void convertToNv12(const PictureView& source, const Nv12Planes& target);

} // namespace tessarin::pixels
