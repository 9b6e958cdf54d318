#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/RoundedRect.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessarin::pixels {

// Cuts pictures of one size to a rounded rectangle, with a white border along its edge or without. Immutable
// after construction; any thread.
class BorderedMask {
 public:
  // The size of the pictures in pixels, the rectangle on them, and how much of its edge becomes white.
  BorderedMask(std::int32_t width, std::int32_t height, const RoundedRect& shape, double border);

  // Makes premultiplied pixels, transparent outside of the rectangle, of a picture in place. An opaque one's
  // fourth bytes are not looked at; any other is premultiplied and lies over the border's white.
  void apply(const Canvas& picture, bool isOpaque) const;

 private:
  // What of a pixel stays of the picture, and what of it becomes white.
  struct Line {
    const std::uint8_t* weights;
    const std::uint8_t* whites;
  };
  Line lineOf(std::int32_t y) const;
  void addLine(std::int32_t y, const RoundedRect& shape, double border);

  std::int32_t width_, height_;
  std::int32_t topLines_;    // these have something of round corners, of the border or of the upper edge
  std::int32_t bottomLines_; // and these of the lower edge; all between them are alike and kept once
  std::vector<std::uint8_t> weights_, whites_;
};

} // namespace tessarin::pixels
