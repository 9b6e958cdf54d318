#include "support/CameraPicture.hpp"

#include "support/FrameCounter.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::camera {

namespace {

std::uint8_t rounded(double value) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

// Of the pixels that share their chroma: two beside one another, and those below, which are the same.
Yuv meanOfPair(int x, int width, ColourRules rules) {
  const auto left = yuvFromRgb(barColour(x, width), rules);
  const auto right = yuvFromRgb(barColour(std::min(x + 1, width - 1), width), rules);
  return {(left.luma + right.luma) / 2, (left.blueChroma + right.blueChroma) / 2,
          (left.redChroma + right.redChroma) / 2};
}

// Every row of a plane is like its first.
void repeatRow(std::uint8_t* plane, int stride, int rows) {
  for (int y = 1; y < rows; ++y) {
    std::copy_n(plane, stride, plane + static_cast<std::ptrdiff_t>(y) * stride);
  }
}

void paintPacked(RawPicture& picture, ColourRules rules) {
  const int lumaPlace = picture.format == RawFormat::yuy2 ? 0 : 1;
  for (int x = 0; x < picture.width; x += 2) {
    const auto chroma = meanOfPair(x, picture.width, rules);
    const int right = std::min(x + 1, picture.width - 1);
    auto* pair = picture.bytes.data() + static_cast<std::ptrdiff_t>(x) * 2;
    pair[lumaPlace] = rounded(yuvFromRgb(barColour(x, picture.width), rules).luma);
    pair[lumaPlace + 2] = rounded(yuvFromRgb(barColour(right, picture.width), rules).luma);
    pair[1 - lumaPlace] = rounded(chroma.blueChroma);
    pair[3 - lumaPlace] = rounded(chroma.redChroma);
  }
  repeatRow(picture.bytes.data(), picture.stride, picture.height);
}

void paintPlanar(RawPicture& picture, ColourRules rules) {
  auto* luma = picture.bytes.data();
  for (int x = 0; x < picture.width; ++x) {
    luma[x] = rounded(yuvFromRgb(barColour(x, picture.width), rules).luma);
  }
  repeatRow(luma, picture.stride, picture.height);
  const bool isInterleaved = picture.format == RawFormat::nv12;
  const auto chromaSize = static_cast<std::ptrdiff_t>(picture.chromaStride()) * picture.chromaHeight();
  auto* blue = luma + static_cast<std::ptrdiff_t>(picture.stride) * picture.height;
  auto* red = isInterleaved ? blue + 1 : blue + chromaSize;
  for (int x = 0; x < (picture.width + 1) / 2; ++x) {
    const auto mean = meanOfPair(2 * x, picture.width, rules);
    blue[isInterleaved ? 2 * x : x] = rounded(mean.blueChroma);
    red[isInterleaved ? 2 * x : x] = rounded(mean.redChroma);
  }
  repeatRow(blue, picture.chromaStride(), picture.chromaHeight());
  if (!isInterleaved) {
    repeatRow(red, picture.chromaStride(), picture.chromaHeight());
  }
}

void putPixel(const RawPicture& picture, std::uint8_t* row, int x, Rgb colour) {
  if (picture.format == RawFormat::gray8) {
    row[x] = rounded(0.299 * colour.red + 0.587 * colour.green + 0.114 * colour.blue);
    return;
  }
  auto* pixel = row + static_cast<std::ptrdiff_t>(x) * (picture.format == RawFormat::rgb ? 3 : 4);
  const bool isBlueFirst = picture.format == RawFormat::bgrx;
  pixel[0] = isBlueFirst ? colour.blue : colour.red;
  pixel[1] = colour.green;
  pixel[2] = isBlueFirst ? colour.red : colour.blue;
}

bool isPacked(RawFormat format) {
  return format == RawFormat::yuy2 || format == RawFormat::uyvy;
}

bool isPlanar(RawFormat format) {
  return format == RawFormat::nv12 || format == RawFormat::i420;
}

} // namespace

Yuv yuvFromRgb(Rgb colour, ColourRules rules) {
  const double redWeight = rules.isBt709 ? 0.2126 : 0.299;
  const double blueWeight = rules.isBt709 ? 0.0722 : 0.114;
  const double luma =
      redWeight * colour.red + (1 - redWeight - blueWeight) * colour.green + blueWeight * colour.blue;
  const double blueChroma = (colour.blue - luma) / (2 * (1 - blueWeight));
  const double redChroma = (colour.red - luma) / (2 * (1 - redWeight));
  if (rules.isFullRange) {
    return {luma, 128 + blueChroma, 128 + redChroma};
  }
  return {16 + luma * 219 / 255, 128 + blueChroma * 224 / 255, 128 + redChroma * 224 / 255};
}

Rgb barColour(int x, int width) {
  constexpr std::uint8_t on = 220;
  constexpr std::uint8_t off = 24;
  const auto bar = std::min(x * 8 / width, 7);
  const auto bits = 7 - bar; // green weighs most, then red, then blue
  return {(bits & 2) != 0 ? on : off, (bits & 4) != 0 ? on : off, (bits & 1) != 0 ? on : off};
}

int naturalStride(RawFormat format, int width) {
  switch (format) {
  case RawFormat::yuy2:
  case RawFormat::uyvy:
    return (width + 1) / 2 * 4;
  case RawFormat::nv12:
    return (width + 1) / 2 * 2;
  case RawFormat::i420:
  case RawFormat::gray8:
    return width;
  case RawFormat::rgb:
    return width * 3;
  case RawFormat::bgrx:
  case RawFormat::rgbx:
    break;
  }
  return width * 4;
}

RawPicture paintBars(RawFormat format, int width, int height, ColourRules rules, int padding) {
  RawPicture picture{format, width, height, naturalStride(format, width) + padding, {}};
  auto size = static_cast<std::size_t>(picture.stride) * height;
  if (isPlanar(format)) {
    size += static_cast<std::size_t>(picture.chromaStride()) * picture.chromaHeight() *
            (format == RawFormat::i420 ? 2 : 1);
  }
  picture.bytes.assign(size, 0x5A);
  if (isPacked(format)) {
    paintPacked(picture, rules);
  } else if (isPlanar(format)) {
    paintPlanar(picture, rules);
  } else {
    for (int x = 0; x < width; ++x) {
      putPixel(picture, picture.bytes.data(), x, barColour(x, width));
    }
    repeatRow(picture.bytes.data(), picture.stride, height);
  }
  return picture;
}

// Black and white have no chroma, so the plane's rows of blocks are filled byte by byte.
void drawCounter(RawPicture& picture, std::uint32_t number, ColourRules rules) {
  if (picture.width < frameCounter::width || picture.height < frameCounter::height) {
    return;
  }
  constexpr int side = frameCounter::blockSize;
  const auto lumaSize = static_cast<std::ptrdiff_t>(picture.stride) * picture.height;
  for (int block = 0; block < frameCounter::columns * frameCounter::rows; ++block) {
    const int left = block % frameCounter::columns * side;
    const int top = block / frameCounter::columns * side;
    const auto level = static_cast<std::uint8_t>(frameCounter::isWhite(number, block) ? 255 : 0);
    const auto luma = rounded(yuvFromRgb({level, level, level}, rules).luma);
    for (int y = top; y < top + side; ++y) {
      auto* row = picture.bytes.data() + static_cast<std::ptrdiff_t>(y) * picture.stride;
      if (isPacked(picture.format)) {
        for (int i = 2 * left; i < 2 * (left + side); ++i) {
          row[i] = (i % 2 == 0) == (picture.format == RawFormat::yuy2) ? luma : 128;
        }
      } else if (isPlanar(picture.format)) {
        std::fill_n(row + left, side, luma);
      } else {
        for (int x = left; x < left + side; ++x) {
          putPixel(picture, row, x, {level, level, level});
        }
      }
    }
    if (isPlanar(picture.format)) {
      const bool isInterleaved = picture.format == RawFormat::nv12;
      for (int y = top / 2; y < (top + side) / 2; ++y) {
        auto* row = picture.bytes.data() + lumaSize + static_cast<std::ptrdiff_t>(y) * picture.chromaStride();
        std::fill_n(row + (isInterleaved ? left : left / 2), isInterleaved ? side : side / 2, 128);
        if (!isInterleaved) {
          row += static_cast<std::ptrdiff_t>(picture.chromaStride()) * picture.chromaHeight();
          std::fill_n(row + left / 2, side / 2, 128);
        }
      }
    }
  }
}

} // namespace tessarin::camera
