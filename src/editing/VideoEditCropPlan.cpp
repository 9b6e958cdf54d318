#include "editing/VideoEditCropPlan.hpp"

#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"

#include <cmath>
#include <cstdint>

namespace tessarin {

namespace {

void require(bool condition) {
  if (!condition)
    fail(VideoEditExportError::invalidCrop);
}

bool isSide(double pixels) {
  return std::isfinite(pixels) && pixels > 0;
}

// Rounded down to an even number.
std::int64_t evenPixelSize(double pixels) {
  constexpr double tooLarge = 0x1p31; // no picture is as large, and integers hold it
  require(pixels >= 2 && pixels < tooLarge);
  return static_cast<std::int64_t>(pixels) & ~std::int64_t{1};
}

} // namespace

VideoEditCropPlan::VideoEditCropPlan(double naturalWidth, double naturalHeight,
                                     const AffineTransform& preferredTransform,
                                     const NormalizedVideoCropDTO& crop) {
  require(isSide(naturalWidth) && isSide(naturalHeight));
  const RectDTO oriented = preferredTransform.boundsOf({0, 0, naturalWidth, naturalHeight});
  renderSize_ = {evenPixelSize(crop.width * oriented.width), evenPixelSize(crop.height * oriented.height)};
  transform_ = preferredTransform.followedBy(AffineTransform::translation(-oriented.x, -oriented.y));
}

} // namespace tessarin
