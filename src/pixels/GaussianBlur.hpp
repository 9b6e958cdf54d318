#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/PixelArea.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::pixels {

// Blurs pictures by a Gaussian, beyond whose edges the nearest pixel goes on. Keeps its rows for the next
// picture. One thread at a time; throws std::bad_alloc.
//
// All four channels are blurred alike, as they are stored: sRGB's with its transfer function and
// premultiplied, like the rest of this room, so that a blurred picture has the mean colours that it shows
// when it is scaled down.
//
// Up to a standard deviation of 4 pixels the picture is convolved with the Gaussian's values at whole pixels,
// to 3.2 deviations. From there on it is first made smaller, by the largest power of two n that leaves 3
// pixels to a deviation, 2 where n is 2, and in the end larger again, both with linear weights; what each of
// the two widens it by, n^2 / 6 + 1 / 12, is taken off the Gaussian's variance. So the larger the deviation,
// the less there is to do. No channel is farther than 1 level from the exact value, rounding included, and by
// root mean square less than half a level.
class GaussianBlur {
 public:
  static constexpr double largestDeviation = 4096; // more counts as this

  // Writes the pixels of the source's area, blurred, to a target of the area's size. The target may be that
  // part of the source itself. No pixel of the source is read that is farther from the area than `reach`. A
  // deviation that is not positive, or not a number, copies.
  void blur(const PictureView& source, const PixelArea& area, double deviation, const Canvas& target);

  // In pixels, in either direction.
  static std::int32_t reach(double deviation);

 private:
  void blurDirectly(const PictureView& source, const PixelArea& area, double deviation, const Canvas& target);
  void blurSmall(const PictureView& source, const PixelArea& area, double deviation, const Canvas& target);
  void setWeights(double deviation);
  std::int32_t radius() const { return static_cast<std::int32_t>(weights_.size() / 2) - 1; }

  struct Cells;
  void shrink(const PictureView& source, const Cells& columns, const Cells& lines);
  void shrinkLine(const PictureView& source, const Cells& columns, std::int32_t line, std::int16_t* target);
  void setCellWeights(const Cells& columns);
  void blurCells(const Cells& columns, const Cells& lines);
  void enlarge(const Cells& columns, const Cells& lines, const Canvas& target);

  std::vector<std::int16_t> weights_; // of the Gaussian, an even number, the last one 0
  std::vector<std::uint8_t> line_;    // of the source, with its edges extended
  std::vector<std::int16_t> words_;   // rows on their way
  std::vector<std::int16_t> small_, blurred_;
  std::vector<const std::uint8_t*> byteRows_;
  std::vector<const std::int16_t*> wordRows_;
  std::vector<std::int32_t> first_;
  std::vector<std::int16_t> places_;
};

} // namespace tessarin::pixels
