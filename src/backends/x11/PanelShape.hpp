#pragma once

#include "backends/x11/Displays.hpp"
#include "model/Geometry.hpp"
#include "model/Picture.hpp"

#include <cstdint>
#include <vector>

// What of a panel's frame and picture becomes pixels on the screen. Pure.
namespace tessarin::x11 {

// The whole pixels that a frame in points touches, as far as the protocol's coordinates express them. Empty
// for an empty frame, and for one that is no number.
PixelRect panelPixels(const RectDTO& frame, double scale);

// The picture's rows, packed.
void copyPicture(const PictureView& picture, std::uint8_t* pixels);

// The same as they are shown where nothing mixes windows: pixels of at least half an alpha with their own
// colour, opaque, and zeros elsewhere.
void copyOpaquePicture(const PictureView& picture, std::uint8_t* pixels);

// The pixels of at least half an alpha, as rectangles in bands from the top.
std::vector<PixelRect> opaqueShape(const PictureView& picture);

// The parts within the size.
std::vector<PixelRect> clipped(const std::vector<PixelRect>& rectangles, std::int32_t width,
                               std::int32_t height);

} // namespace tessarin::x11
