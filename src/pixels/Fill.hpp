#pragma once

#include "model/Picture.hpp"
#include "pixels/Canvas.hpp"
#include "pixels/Mask.hpp"
#include "pixels/PixelArea.hpp"

#include <cstdint>

// Colours on canvases. Any thread, no state; nothing fails. Colours are mixed as they are stored, sRGB's
// values with its transfer function, as browsers do it: a host's preview shows the same.
namespace tessarin::pixels {

// Puts the colour in the place of what was there, premultiplied; what is outside of the canvas is left out.
void fillArea(const Canvas& canvas, const PixelArea& area, const Color& color);

// Lays the colour over what is there, as blendOver does it.
void blendColor(const Canvas& canvas, const PixelArea& area, const Color& color);

// The same as far as the mask says, whose top left pixel lies at (x, y).
void blendColor(const Canvas& canvas, std::int32_t x, std::int32_t y, const Mask& mask, const Color& color);

// Makes a layer of one colour as opaque at each pixel as the source is there, which has an alpha: what its
// shadow is blurred from. The target has the source's size and may be the source.
void colorByAlpha(const PictureView& source, const Color& color, const Canvas& target);

// Between two places, in pixels from the top left corner of the canvas.
struct LinearGradient {
  double startX = 0;
  double startY = 0;
  double endX = 0;
  double endY = 0;
  Color start; // at the start, and before it
  Color end;   // at the end, and beyond it
};

// Fills the canvas. Premultiplied channels change evenly along the line, by the place of a pixel's centre;
// across it they stay. Values between two levels become one of them by an ordered pattern of eight by eight
// pixels, which has the right mean: so no bands are seen, whole levels stay as they are, and every frame is
// alike. Where the two places are one, or not finite, the canvas has the end's colour.
void fillGradient(const Canvas& canvas, const LinearGradient& gradient);

} // namespace tessarin::pixels
