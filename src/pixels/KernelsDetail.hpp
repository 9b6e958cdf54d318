#pragma once

#include "pixels/Kernels.hpp"

// What the versions of the kernels have in common. Plain arithmetic only: this header is compiled with
// different processor options, so nothing here may have external linkage.
namespace tessarin::pixels {
namespace {
// NOLINTBEGIN(misc-definitions-in-headers): internal linkage is what keeps the versions apart

// BT.709 luma weights 0.2126, 0.7152, 0.0722, scaled to 219 / 255 and to 2^15.
constexpr int lumaBits = 15;
constexpr int lumaB = 2032;
constexpr int lumaG = 20127;
constexpr int lumaR = 5983;
constexpr int lumaBias = (16 << lumaBits) + (1 << (lumaBits - 1));

// Colour differences scaled to 224 / 255 and to 2^16, applied to the sum of four pixels. Each row sums up
// to zero, so that grey stays exactly 128.
constexpr int chromaBits = 18;
constexpr int cbB = 28784;
constexpr int cbG = -22189;
constexpr int cbR = -6595;
constexpr int crB = -2639;
constexpr int crG = -26145;
constexpr int crR = 28784;
constexpr int chromaBias = (128 << chromaBits) + (1 << (chromaBits - 1));

inline std::uint8_t lumaOf(const std::uint8_t* pixel) {
  return static_cast<std::uint8_t>((pixel[0] * lumaB + pixel[1] * lumaG + pixel[2] * lumaR + lumaBias) >>
                                   lumaBits);
}

inline void convertRowsPlain(const std::uint8_t* top, const std::uint8_t* bottom, std::size_t pixels,
                             std::uint8_t* topLuma, std::uint8_t* bottomLuma, std::uint8_t* cb,
                             std::uint8_t* cr) {
  for (std::size_t x = 0; x + 1 < pixels; x += 2, top += 8, bottom += 8) {
    topLuma[x] = lumaOf(top);
    topLuma[x + 1] = lumaOf(top + 4);
    bottomLuma[x] = lumaOf(bottom);
    bottomLuma[x + 1] = lumaOf(bottom + 4);
    const int b = top[0] + top[4] + bottom[0] + bottom[4];
    const int g = top[1] + top[5] + bottom[1] + bottom[5];
    const int r = top[2] + top[6] + bottom[2] + bottom[6];
    cb[x / 2] = static_cast<std::uint8_t>((b * cbB + g * cbG + r * cbR + chromaBias) >> chromaBits);
    cr[x / 2] = static_cast<std::uint8_t>((b * crB + g * crG + r * crR + chromaBias) >> chromaBits);
  }
}

constexpr int combineShift = weightBits - rowBits;
constexpr int combineBias = 1 << (combineShift - 1);

inline void combineRowsPlain(const std::uint8_t* const* rows, const std::int16_t* weights, std::size_t count,
                             std::size_t from, std::size_t bytes, std::int16_t* combined) {
  for (std::size_t x = from; x < bytes; ++x) {
    int sum = combineBias;
    for (std::size_t row = 0; row < count; ++row)
      sum += rows[row][x] * weights[row];
    combined[x] = static_cast<std::int16_t>(sum >> combineShift);
  }
}

constexpr int resampleShift = weightBits + rowBits;
constexpr int resampleBias = 1 << (resampleShift - 1);

inline void resamplePixelsPlain(const std::int16_t* combined, const ScaleTaps& taps, std::size_t from,
                                std::size_t to, std::uint8_t* target) {
  const std::int32_t* first = taps.first.data();
  for (std::size_t x = from; x < to; ++x) {
    const std::int16_t* weights = taps.weights.data() + x * static_cast<std::size_t>(taps.taps);
    const std::int16_t* source = combined + static_cast<std::ptrdiff_t>(first[x]) * 4;
    for (int channel = 0; channel < 4; ++channel) {
      int sum = resampleBias;
      for (int tap = 0; tap < taps.taps; ++tap)
        sum += source[tap * 4 + channel] * weights[tap];
      target[x * 4 + static_cast<std::size_t>(channel)] = static_cast<std::uint8_t>(sum >> resampleShift);
    }
  }
}

// Exact for value * scale / 255 rounded to nearest, both at most 255.
inline unsigned dividedBy255(unsigned product) {
  product += 128;
  return (product + (product >> 8)) >> 8;
}

inline void blendPixelsPlain(const std::uint8_t* source, std::uint8_t* target, std::size_t from,
                             std::size_t pixels, bool keepsFourth) {
  const std::size_t channels = keepsFourth ? 3 : 4;
  for (std::size_t x = from * 4; x < pixels * 4; x += 4) {
    const unsigned rest = 255U - source[x + 3];
    for (std::size_t channel = x; channel < x + channels; ++channel) {
      const unsigned sum = source[channel] + dividedBy255(target[channel] * rest);
      target[channel] = static_cast<std::uint8_t>(sum < 255 ? sum : 255);
    }
  }
}

inline void maskPixelsPlain(std::uint8_t* row, const std::uint8_t* weights, const std::uint8_t* whites,
                            std::size_t from, std::size_t pixels, bool isOpaque) {
  for (std::size_t x = from; x < pixels; ++x) {
    std::uint8_t* pixel = row + x * 4;
    if (isOpaque)
      pixel[3] = 255;
    for (int channel = 0; channel < 4; ++channel)
      pixel[channel] = static_cast<std::uint8_t>(dividedBy255(pixel[channel] * weights[x]) + whites[x]);
  }
}

// NOLINTEND(misc-definitions-in-headers)
} // namespace
} // namespace tessarin::pixels
