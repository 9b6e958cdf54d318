#pragma once

#include "backends/x11/SharedMemory.hpp"
#include "pixels/Canvas.hpp"

#include <optional>

namespace tessarin::x11 {

// Reads a rectangle of the root window's coordinates from a drawable into a canvas, as directly as the
// canvas's width allows. Confined to the connection's thread.
class CanvasReader {
 public:
  explicit CanvasReader(PixelReader& reader) : reader_(reader) {}

  // The drawable covers `covered`. The canvas begins at the buffer's start, has packed rows and at least the
  // size of `wanted`, which comes to its top left. Buffer and canvas stay until collect().
  void request(xcb_drawable_t drawable, const PixelRect& covered, const PixelRect& wanted,
               const PixelBuffer& buffer, const pixels::Canvas& canvas);
  // What `covered` does not hold is black and transparent. False when the server refused. Throws
  // DesktopFailure.
  bool collect();

 private:
  PixelReader& reader_;
  PixelBuffer scratch_;
  pixels::Canvas canvas_;
  PixelRect wanted_;
  PixelRect inside_;
  bool isDirect_ = true;
  std::optional<PixelReader::Pending> pending_;
};

// A canvas of packed rows at the start of the memory.
inline pixels::Canvas packedCanvas(std::uint8_t* data, std::int32_t width, std::int32_t height,
                                   PixelFormat format) {
  return {data, width, height, std::ptrdiff_t{width} * 4, format};
}

// Makes every pixel black and transparent.
void clear(const pixels::Canvas& canvas, const PixelRect& rectangle);

} // namespace tessarin::x11
