#pragma once

#include "pixels/Kernels.hpp"

#include <cstring>

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

inline void blendMaskedPixelsPlain(const std::uint8_t* source, const std::uint8_t* weights,
                                   std::uint8_t* target, std::size_t from, std::size_t pixels, bool isOpaque,
                                   bool keepsFourth) {
  constexpr std::uint8_t noWhite = 0;
  for (std::size_t x = from; x < pixels; ++x) {
    std::uint8_t weighed[4];
    std::memcpy(weighed, source + x * 4, sizeof weighed);
    maskPixelsPlain(weighed, weights + x, &noWhite, 0, 1, isOpaque);
    blendPixelsPlain(weighed, target + x * 4, 0, 1, keepsFourth);
  }
}

constexpr int wordsBias = 1 << (weightBits - 1);

inline int weighedWords(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                        std::size_t x) {
  int sum = 0;
  for (std::size_t row = 0; row < count; ++row)
    sum += rows[row][x] * weights[row];
  return sum;
}

inline void combineWordsPlain(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                              std::size_t from, std::size_t words, std::int16_t* combined) {
  for (std::size_t x = from; x < words; ++x)
    combined[x] =
        static_cast<std::int16_t>((weighedWords(rows, weights, count, x) + wordsBias) >> weightBits);
}

inline void combineWordsToBytesPlain(const std::int16_t* const* rows, const std::int16_t* weights,
                                     std::size_t count, std::size_t from, std::size_t words,
                                     std::uint8_t* target) {
  for (std::size_t x = from; x < words; ++x)
    target[x] =
        static_cast<std::uint8_t>((weighedWords(rows, weights, count, x) + resampleBias) >> resampleShift);
}

inline void resampleWordsPlain(const std::int16_t* combined, const ScaleTaps& taps, std::size_t from,
                               std::size_t to, std::int16_t* target) {
  const std::int32_t* first = taps.first.data();
  for (std::size_t x = from; x < to; ++x) {
    const std::int16_t* weights = taps.weights.data() + x * static_cast<std::size_t>(taps.taps);
    const std::int16_t* source = combined + static_cast<std::ptrdiff_t>(first[x]) * 4;
    for (int channel = 0; channel < 4; ++channel) {
      int sum = wordsBias;
      for (int tap = 0; tap < taps.taps; ++tap)
        sum += source[tap * 4 + channel] * weights[tap];
      target[x * 4 + static_cast<std::size_t>(channel)] = static_cast<std::int16_t>(sum >> weightBits);
    }
  }
}

// Vectorised by the compiler, for each processor's options.
inline void addRowPlain(const std::uint8_t* row, std::size_t bytes, std::uint32_t* sums) {
  for (std::size_t i = 0; i < bytes; ++i)
    sums[i] += row[i];
}

// The library's own templates have external linkage.
template<class T> constexpr T lesser(T a, T b) {
  return b < a ? b : a;
}
template<class T> constexpr T greater(T a, T b) {
  return a < b ? b : a;
}

constexpr std::uint32_t opaqueBits = 0xFF000000U;

inline std::uint32_t pixelOf(const SampledLine& line, std::int64_t x, std::int64_t y) {
  if (line.isClamped) {
    x = greater<std::int64_t>(lesser<std::int64_t>(x, line.width - 1), 0);
    y = greater<std::int64_t>(lesser<std::int64_t>(y, line.height - 1), 0);
  } else if (x < 0 || y < 0 || x >= line.width || y >= line.height) {
    return 0;
  }
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, line.source + y * line.stride + x * 4, sizeof pixel);
  return line.isOpaque ? pixel | opaqueBits : pixel;
}

constexpr int placeBits = 11; // of the place between two pixels
constexpr int placeOne = 1 << placeBits;
constexpr int acrossShift = placeBits - rowBits;
constexpr int acrossBias = 1 << (acrossShift - 1);
constexpr int alongShift = placeBits + rowBits;
constexpr int alongBias = 1 << (alongShift - 1);

// Where a target pixel has its source: the upper left of four pixels, and the place between them.
struct SamplePlace {
  std::int64_t left, top;
  int across, along;

  SamplePlace(const SampledLine& line, std::size_t index) {
    constexpr std::int64_t half = std::int64_t{1} << (31 - placeBits);
    const std::int64_t atX = line.x + line.stepX * static_cast<std::int64_t>(index) + half;
    const std::int64_t atY = line.y + line.stepY * static_cast<std::int64_t>(index) + half;
    left = atX >> 32;
    top = atY >> 32;
    across = static_cast<int>(atX >> (32 - placeBits)) & (placeOne - 1);
    along = static_cast<int>(atY >> (32 - placeBits)) & (placeOne - 1);
  }
};

struct Sample {
  std::uint32_t upperLeft, upperRight, lowerLeft, lowerRight;

  Sample(const SampledLine& line, const SamplePlace& place)
      : upperLeft(pixelOf(line, place.left, place.top)), upperRight(pixelOf(line, place.left + 1, place.top)),
        lowerLeft(pixelOf(line, place.left, place.top + 1)),
        lowerRight(pixelOf(line, place.left + 1, place.top + 1)) {}
};

inline void sampleRowPlain(const SampledLine& line, std::size_t pixels, std::uint8_t* target) {
  for (std::size_t i = 0; i < pixels; ++i) {
    const SamplePlace place(line, i);
    const Sample sample(line, place);
    const auto mixed = [&](std::uint32_t left, std::uint32_t right, int shift) {
      return (static_cast<int>(left >> shift & 255) * (placeOne - place.across) +
              static_cast<int>(right >> shift & 255) * place.across + acrossBias) >>
             acrossShift;
    };
    for (int channel = 0; channel < 4; ++channel)
      target[i * 4 + static_cast<std::size_t>(channel)] = static_cast<std::uint8_t>(
          (mixed(sample.upperLeft, sample.upperRight, channel * 8) * (placeOne - place.along) +
           mixed(sample.lowerLeft, sample.lowerRight, channel * 8) * place.along + alongBias) >>
          alongShift);
  }
}

inline void gradientPixelsPlain(const GradientLine& line, std::size_t from, std::size_t pixels,
                                std::uint8_t* target) {
  for (std::size_t x = from; x < pixels; ++x)
    for (std::size_t channel = 0; channel < 4; ++channel) {
      const float place = static_cast<float>(static_cast<std::int32_t>(x));
      const float value = lesser(greater(line.start[channel] + line.step[channel] * place, line.low[channel]),
                                 line.high[channel]);
      target[x * 4 + channel] =
          static_cast<std::uint8_t>(static_cast<std::int32_t>(value + line.thresholds[x % 8]));
    }
}

inline void transposePlain(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::size_t width,
                           std::size_t height, std::uint8_t* target, std::ptrdiff_t targetStride) {
  for (std::size_t y = 0; y < height; ++y)
    for (std::size_t x = 0; x < width; ++x)
      std::memcpy(target + static_cast<std::ptrdiff_t>(x) * targetStride + y * 4,
                  source + static_cast<std::ptrdiff_t>(y) * sourceStride + x * 4, 4);
}

inline void reversePixelsPlain(const std::uint8_t* source, std::size_t from, std::size_t pixels,
                               std::uint8_t* target) {
  for (std::size_t x = from; x < pixels; ++x)
    std::memcpy(target + x * 4, source + (pixels - 1 - x) * 4, 4);
}

// NOLINTEND(misc-definitions-in-headers)
} // namespace
} // namespace tessarin::pixels
