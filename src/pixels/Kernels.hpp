#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The inner loops of this room, in one version for any processor and in vectorised ones. All versions yield
// the same bytes. Used by this room and its tests only.
namespace tessarin::pixels {

// Weights of the scaler are in units of 1/16384; the weights of one target pixel sum up to it.
inline constexpr int weightBits = 14;
// A row between the vertical and the horizontal pass: channel values times 128.
inline constexpr int rowBits = 7;

// One direction of a scaling: target pixel i is the weighted sum of `taps` source pixels from first[i] on.
// The taps are even in number; what reaches beyond the source has weight zero.
struct ScaleTaps {
  std::span<const std::int32_t> first;
  std::span<const std::int16_t> weights; // taps for each target pixel
  std::int32_t taps = 0;
};

// A line through a picture whose target pixels have their sources at even steps. Positions are those of the
// upper left of the four pixels that a target pixel is mixed of, in 1/2^32 of a pixel.
struct SampledLine {
  const std::uint8_t* source = nullptr;
  std::ptrdiff_t stride = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int64_t x = 0, y = 0;         // of the first target pixel
  std::int64_t stepX = 0, stepY = 0; // to the next one
  bool isOpaque = false;             // fourth channels count as 255, whatever they hold
  bool isClamped = false;            // outside there is the nearest pixel; otherwise nothing
};

// One row of a gradient, channel by channel as in memory: at pixel x the value start + step * x, kept between
// low and high. A threshold of its column, at least 0 and less than 1, decides how it is rounded.
struct GradientLine {
  float start[4];
  float step[4];
  float low[4];
  float high[4];
  float thresholds[8]; // of column x modulo 8
};

struct Kernels {
  const char* name;

  // BT.709 in fixed point: two rows of an even number of pixels to two rows of luma and one of each chroma.
  void (*convertRows)(const std::uint8_t* top, const std::uint8_t* bottom, std::size_t pixels,
                      std::uint8_t* topLuma, std::uint8_t* bottomLuma, std::uint8_t* cb, std::uint8_t* cr);

  // The weighted sum of an even number of rows, byte by byte, times 128 / 16384, rounded half up.
  void (*combineRows)(const std::uint8_t* const* rows, const std::int16_t* weights, std::size_t count,
                      std::size_t bytes, std::int16_t* combined);

  // Target pixels of four channels from a combined row.
  void (*resampleRow)(const std::int16_t* combined, const ScaleTaps& taps, std::uint8_t* target);

  // Lays pixels of four channels over others, pixel by pixel: source + target * (255 - alpha) / 255, rounded
  // to nearest, 255 at most. The target's fourth channel is kept as it is or blended like the others.
  void (*blendRow)(const std::uint8_t* source, std::uint8_t* target, std::size_t pixels, bool keepsFourth);

  // Weighs pixels of four channels in place, and adds white: channel * weight / 255, rounded to nearest, plus
  // white, with one weight and one white a pixel that make 255 at most. The fourth channel of opaque pixels
  // counts as 255, whatever it holds.
  void (*maskRow)(std::uint8_t* row, const std::uint8_t* weights, const std::uint8_t* whites,
                  std::size_t pixels, bool isOpaque);

  // Both in one: weighs the source's pixels without white, and lays them over the target's.
  void (*blendMaskedRow)(const std::uint8_t* source, const std::uint8_t* weights, std::uint8_t* target,
                         std::size_t pixels, bool isOpaque, bool keepsFourth);

  // The weighted sum of an even number of combined rows, word by word, over 16384, rounded half up.
  void (*combineWords)(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                       std::size_t words, std::int16_t* combined);

  // The same to bytes.
  void (*combineWordsToBytes)(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                              std::size_t words, std::uint8_t* target);

  // The same as resampleRow, to words: over 16384, rounded half up.
  void (*resampleWords)(const std::int16_t* combined, const ScaleTaps& taps, std::int16_t* target);

  // Adds a row's bytes to sums of such.
  void (*addRow)(const std::uint8_t* row, std::size_t bytes, std::uint32_t* sums);

  // Mixes each target pixel of the four source pixels around its place, in 1/2048 of a pixel.
  void (*sampleRow)(const SampledLine& line, std::size_t pixels, std::uint8_t* target);

  void (*gradientRow)(const GradientLine& line, std::size_t pixels, std::uint8_t* target);

  // Pixel (x, y) of the source becomes pixel (y, x) of the target. Strides may be negative.
  void (*transpose)(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::size_t width,
                    std::size_t height, std::uint8_t* target, std::ptrdiff_t targetStride);

  // The pixels of a row in reverse order; source and target do not overlap.
  void (*reverseRow)(const std::uint8_t* source, std::size_t pixels, std::uint8_t* target);
};

// Every version that this processor can run, the plain one first.
std::span<const Kernels> availableKernels();

// The fastest one, unless another one was chosen.
const Kernels& kernels();

// For tests and benches, which compare the versions: takes this one from now on, in all threads.
void chooseKernels(const Kernels& chosen);

} // namespace tessarin::pixels
