#pragma once

#include "model/Picture.hpp"
#include "pixels/Canvas.hpp"

#include <cstdint>
#include <memory>

namespace tessarin::pixels {

// Memory for pictures that are made one after another: what the last user of one lets go is used for a later
// one, so that its pages need not be asked for again.
class PictureBuffers {
 public:
  // Pixels to be painted, and what keeps them.
  struct Sheet {
    Canvas canvas;
    std::shared_ptr<const void> owner;

    // Painted. Whoever holds a copy of the picture keeps its pixels, longer than the buffers if need be.
    Picture picture() const { return {canvas.view(), owner}; }
  };

  PictureBuffers();

  // Four bytes a pixel, of undefined content, without gaps between the rows. Throws std::bad_alloc. One
  // thread at a time, while users let go of pictures on any.
  Sheet take(std::int32_t width, std::int32_t height, PixelFormat format);

 private:
  struct Shelf;
  class Loan;
  std::shared_ptr<Shelf> shelf_;
};

} // namespace tessarin::pixels
