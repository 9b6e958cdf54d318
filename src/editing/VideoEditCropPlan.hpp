#pragma once

#include "model/AffineTransform.hpp"
#include "model/Geometry.hpp"
#include "project/VideoEditProject.hpp"

namespace tessarin {

// How large a cropped picture is, and how a whole one is turned upright. Plain value, any thread.
class VideoEditCropPlan {
 public:
  // Of pictures of this natural size in pixels, as they are coded, that are shown by the preferred transform.
  // Throws Failure<VideoEditExportError>, invalidCrop: for a natural size that is none, and when nothing of
  // at least 2 x 2 pixels is left.
  VideoEditCropPlan(double naturalWidth, double naturalHeight, const AffineTransform& preferredTransform,
                    const NormalizedVideoCropDTO& crop);

  // Of the cropped picture, upright: pixels, even.
  SizeDTO renderSize() const { return renderSize_; }
  // From the coded picture to the upright one, whose top left corner is the origin.
  const AffineTransform& transform() const { return transform_; }

 private:
  SizeDTO renderSize_;
  AffineTransform transform_;
};

} // namespace tessarin
