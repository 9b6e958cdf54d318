#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/PixelArea.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::pixels {

// Squares of one colour each. One has its centre at a given place, in pixels from the picture's top left;
// the others lie beside it. A pixel belongs to the square that its own centre is in, at the edge between two
// to the right or lower one.
struct MosaicGrid {
  double side = 1; // pixels; less than 1 counts as 1
  double centerX = 0;
  double centerY = 0;
};

// Turns parts of pictures into mosaics. Keeps its rows for the next picture. One thread at a time; throws
// std::bad_alloc.
class Mosaic {
 public:
  // Writes the pixels of the source's area to a target of the area's size, which may be that part of the
  // source itself. The colour of a square is the mean of all its pixels that the source has, within the area
  // or not, rounded half up, in the values as they are stored. What is not finite copies.
  void draw(const PictureView& source, const PixelArea& area, const MosaicGrid& grid, const Canvas& target);

 private:
  // The pixels of the squares along one direction, from `first` on: square i has those from edges[i] to
  // edges[i + 1], as far as the source goes.
  static void setEdges(std::int32_t from, std::int32_t to, std::int32_t length, double side, double center,
                       std::vector<std::int32_t>& edges);
  void drawSquares(const PictureView& source, const PixelArea& area, std::int32_t top, std::int32_t bottom,
                   const Canvas& target);

  std::vector<std::int32_t> columns_, lines_;
  std::vector<std::uint32_t> sums_;
};

} // namespace tessarin::pixels
