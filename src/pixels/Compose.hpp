#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/Mask.hpp"

#include <cstdint>

// Putting pictures together. Any thread, no state; nothing fails. Values are mixed as they are stored, sRGB's
// with its transfer function, as browsers and window systems do it.
namespace tessarin::pixels {

// Copies the picture so that its top left pixel comes to (x, y) of the target; what lies outside is left out.
// The formats are the same.
void copyPixels(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y);

// Lays a picture with premultiplied alpha over the target, its top left pixel at (x, y); what lies outside is
// left out. Each channel is source + target * (255 - alpha) / 255, rounded to nearest; of a target without
// alpha the fourth byte stays as it is.
void blendOver(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y);

// How much of a layer is seen.
struct LayerWeight {
  const Mask* mask = nullptr; // of the layer's size; none: all of it
  double opacity = 1;         // 0 to 1, a step of 1/255 being the least
};

// The same with each of the layer's channels times its weight, rounded to nearest. A layer without alpha
// counts as opaque.
void blendOver(const PictureView& source, const Canvas& target, std::int32_t x, std::int32_t y,
               const LayerWeight& weight);

// How many pixels of a canvas at each side hold no picture yet.
struct Borders {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;
};

// Fills the borders with the nearest pixel of what is between them, of which there is at least one.
void extendEdges(const Canvas& canvas, const Borders& borders);

} // namespace tessarin::pixels
