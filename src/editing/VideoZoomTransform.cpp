#include "editing/VideoZoomTransform.hpp"

#include "project/VideoEffectPlan.hpp"

namespace tessarin {

VideoZoomTransform fixedZoomTransform(const ZoomVideoEffectDTO& zoom, std::int64_t atMs) {
  const double scale = VideoEffectPlan::zoomScale(zoom, atMs);
  return {scale, zoom.center.x * (1 - scale), zoom.center.y * (1 - scale)};
}

} // namespace tessarin
