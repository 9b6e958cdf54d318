#pragma once

#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "project/VideoCameraLayer.hpp"

#include <cstdint>
#include <memory>

namespace tessarin {

// The one way in which a camera's picture becomes a shaped one, on the live panel and in exports alike:
// cropped to fill its rectangle, mirrored if so, with rounded corners and, if so, a white border.
//
// The result depends on the arguments alone; what is kept between calls (masks, weights, buffers) only saves
// work where they stay alike. Confined to one thread at a time.
class CameraPresentationRenderer {
 public:
  // In pixels; a rectangle with a longer side is not drawn.
  static constexpr std::int32_t maximumSide = 16384;

  CameraPresentationRenderer();
  ~CameraPresentationRenderer();
  CameraPresentationRenderer(const CameraPresentationRenderer&) = delete;
  CameraPresentationRenderer& operator=(const CameraPresentationRenderer&) = delete;

  // The frame in the layer's rectangle on a canvas of that many pixels: bgra8Premultiplied, of the whole
  // pixels that the rectangle touches, placed from the canvas's top left. Everything beside it is
  // transparent; what the rectangle has beyond the canvas is part of the picture, too. The path of the layer
  // is not looked at. Without pixels when the rectangle or the frame has none. Throws std::bad_alloc.
  PlacedPicture image(const PictureView& frame, const VideoCameraLayerDTO& layer, const SizeDTO& canvas);

 private:
  struct Kept;
  std::unique_ptr<Kept> kept_;
};

} // namespace tessarin
