#pragma once

#include "model/AffineTransform.hpp"
#include "model/Geometry.hpp"
#include "model/VideoGeometry.hpp"
#include "project/VideoEditEffect.hpp"

#include <cstdint>

namespace tessarin {

// Which part of the content a zoom shows. A place c of the content, as a fraction of it, is seen at
// c * scale + (x, y) of what is shown. Plain value, any thread.
struct VideoZoomTransform {
  double scale = 1;
  double x = 0; // fractions of what is shown, y downwards
  double y = 0;

  NormalizedVideoPointDTO apply(const NormalizedVideoPointDTO& point) const {
    return {x + point.x * scale, y + point.y * scale};
  }
  // The same for the pixels of content of this size, from its top left corner.
  AffineTransform pixelTransform(const SizeDTO& contentSize) const {
    return {scale,
            0,
            0,
            scale,
            static_cast<double>(contentSize.width) * x,
            static_cast<double>(contentSize.height) * y};
  }

  bool operator==(const VideoZoomTransform&) const = default;
};

// A zoom that stays at its center, which is seen where it is without a zoom. Milliseconds of the output.
VideoZoomTransform fixedZoomTransform(const ZoomVideoEffectDTO& zoom, std::int64_t atMs);

} // namespace tessarin
