#pragma once

#include "ports/Typesetting.hpp"

#include <cstddef>
#include <cstdint>

namespace tessarin {

inline const std::uint8_t* pixelAt(const PictureView& view, std::int32_t x, std::int32_t y) {
  return view.data + y * view.stride + std::ptrdiff_t{x} * 4;
}

// What of a picture is drawn on, and where.
struct Ink {
  std::size_t pixels = 0; // that are not transparent
  double alpha = 0;       // of all of them, 1 for an opaque one
  double x = 0;           // the middle of the ink, on the plane
  double y = 0;
  std::uint64_t hash = 14695981039346656037U; // of all bytes of the picture
};

inline Ink inkOf(const PlacedPicture& placed) {
  Ink ink;
  const PictureView& view = placed.picture.view;
  for (std::int32_t y = 0; y < view.height; ++y)
    for (std::int32_t x = 0; x < view.width; ++x) {
      const std::uint8_t* const pixel = pixelAt(view, x, y);
      for (int channel = 0; channel < 4; ++channel)
        ink.hash = (ink.hash ^ pixel[channel]) * 1099511628211U;
      ink.pixels += pixel[3] > 0;
      ink.alpha += pixel[3] / 255.0;
      ink.x += (placed.x + x + 0.5) * pixel[3] / 255.0;
      ink.y += (placed.y + y + 0.5) * pixel[3] / 255.0;
    }
  if (ink.alpha > 0) {
    ink.x /= ink.alpha;
    ink.y /= ink.alpha;
  }
  return ink;
}

} // namespace tessarin
