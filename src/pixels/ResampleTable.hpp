#pragma once

#include "pixels/Kernels.hpp"

#include <cstdint>
#include <vector>

// Used by this room and its tests only.
namespace tessarin::pixels {

// What there is outside of a picture.
enum class Edges : std::uint8_t {
  clamped,     // the nearest pixel
  transparent, // nothing: 0 in all four channels
};

// One direction of a resampling: where a line of `length` source pixels comes to, x becoming
// scale * x + offset, on target pixels 0 to `targetLength`.
struct ResampleAxis {
  std::int32_t length = 1;
  std::int32_t targetLength = 1;
  double scale = 1; // not 0; negative for a mirror image
  double offset = 0;
};

// Which source pixels make each target pixel, as the kernels take it. Reusable: filled anew, it keeps its
// memory.
//
// A target pixel is the mean of the source under a trapezoid around its centre: with s source pixels to a
// target pixel, the convolution of boxes of width max(s, 1) and min(s - 1, s / 2). So a scaling up, s <= 1,
// is linear interpolation, s = 1 at whole pixels is a copy, and a scaling down weighs all source pixels alike
// and dampens what the target cannot show: at s = 4, waves three pixels long to 8 % at most, wherever they
// lie, where the area alone leaves 12 to 25 %; of waves of eight, the shortest that can be shown, 56 % are
// left, where the area leaves 60 to 65 %.
class ResampleTable {
 public:
  void fill(const ResampleAxis& axis, Edges edges);

  // Source columns that are needed, and the table from the first of them on.
  std::int32_t firstNeeded() const { return firstNeeded_; }
  std::int32_t neededCount() const { return neededCount_; }
  ScaleTaps taps() const { return {first_, weights_, taps_}; }
  // The weights' sum for a target pixel: 1 << weightBits, less where a transparent edge takes part.
  std::int32_t sumAt(std::size_t target) const { return sums_[target]; }

 private:
  std::vector<std::int32_t> first_; // less firstNeeded_
  std::vector<std::int16_t> weights_;
  std::vector<std::int32_t> sums_;
  std::int32_t taps_ = 2;
  std::int32_t firstNeeded_ = 0;
  std::int32_t neededCount_ = 0;
};

} // namespace tessarin::pixels
