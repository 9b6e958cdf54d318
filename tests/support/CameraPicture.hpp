#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Pictures as cameras deliver them, made by the plainest arithmetic there is: what conversions are compared
// with, and what the test camera shows.
namespace tessarin::camera {

enum class RawFormat : std::uint8_t { yuy2, uyvy, nv12, i420, bgrx, rgbx, rgb, gray8 };

// How luma and chroma stand for colours.
struct ColourRules {
  bool isBt709 = false; // otherwise BT.601
  bool isFullRange = false;
};

struct Rgb {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;
};

// One after the other in memory, each row padded as asked.
struct RawPicture {
  RawFormat format = RawFormat::bgrx;
  int width = 0;
  int height = 0;
  int stride = 0; // bytes of a row; of the first plane where there are several
  std::vector<std::uint8_t> bytes;

  int chromaStride() const { return format == RawFormat::nv12 ? stride : (stride + 1) / 2; }
  int chromaHeight() const { return (height + 1) / 2; }
};

struct Yuv {
  double luma = 0;
  double blueChroma = 0;
  double redChroma = 0;
};
// Unrounded, on the scale of bytes.
Yuv yuvFromRgb(Rgb colour, ColourRules rules);

// Eight bars of equal width: white, yellow, cyan, green, magenta, red, blue, black, none quite saturated.
Rgb barColour(int x, int width);

// The bytes a row needs without padding.
int naturalStride(RawFormat format, int width);
// The bars in the format, whose rows are that much longer than they need be. Chroma is the mean over the
// pixels that share it.
RawPicture paintBars(RawFormat format, int width, int height, ColourRules rules, int padding = 0);
// The frame counter at the top left (support/FrameCounter.hpp). Nothing when the picture is too small for it.
void drawCounter(RawPicture& picture, std::uint32_t number, ColourRules rules);

} // namespace tessarin::camera
