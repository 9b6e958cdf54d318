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
};

// Every version that this processor can run, the plain one first.
std::span<const Kernels> availableKernels();

// The fastest one.
const Kernels& kernels();

} // namespace tessarin::pixels
