#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace tessarin {

enum class PixelFormat : std::uint8_t {
  bgrx8,              // 32 bits a pixel in memory order B, G, R, unused; opaque
  bgra8Premultiplied, // 32 bits a pixel in memory order B, G, R, A; colour multiplied by alpha
};

// Pixels somewhere in memory, top row first, in the display's own colours (taken as sRGB). Does not own
// them; whoever hands out a view says how long it holds.
struct PictureView {
  const std::uint8_t* data = nullptr;
  std::int32_t width = 0;    // pixels
  std::int32_t height = 0;   // pixels
  std::ptrdiff_t stride = 0; // bytes from one row to the next
  PixelFormat format = PixelFormat::bgrx8;
};

// A view together with what keeps its pixels alive and unchanged. Cheap to copy, any thread.
struct Picture {
  PictureView view;
  std::shared_ptr<const void> owner;
};

// A picture with the place of its top left pixel on some plane, in pixels.
struct PlacedPicture {
  Picture picture;
  std::int32_t x = 0;
  std::int32_t y = 0;
};

// Straight alpha, sRGB; 0 to 1 each.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  static constexpr Color gray(double white, double alpha = 1) { return {white, white, white, alpha}; }
  bool operator==(const Color&) const = default;
};

} // namespace tessarin
