#pragma once

#include "model/Picture.hpp"
#include "pixels/Canvas.hpp"
#include "pixels/PixelArea.hpp"
#include "pixels/RoundedRect.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::pixels {

// The shadow of a rounded rectangle on a canvas: its area in one colour, moved and blurred, and cut only by
// the canvas. Made once for all frames that have it, by GaussianBlur, whose error it has. Immutable after
// construction, any thread; making it throws std::bad_alloc.
class Shadow {
 public:
  struct Form {
    RoundedRect shape; // in pixels of the canvas; may reach beyond it
    double offsetX = 0;
    double offsetY = 0;   // downwards
    double deviation = 0; // the blur's, in pixels
    Color color;
  };
  Shadow(std::int32_t canvasWidth, std::int32_t canvasHeight, const Form& form);

  // Lays it over a canvas of that size.
  void blendOnto(const Canvas& canvas) const;

  // The pixels of the canvas that it may darken.
  const PixelArea& area() const { return area_; }

 private:
  PixelArea area_;
  std::vector<std::uint8_t> pixels_; // premultiplied, of the area
};

} // namespace tessarin::pixels
