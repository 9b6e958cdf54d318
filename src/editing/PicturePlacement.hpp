#pragma once

#include "editing/VideoEffectCompositionInstruction.hpp"
#include "model/AffineTransform.hpp"
#include "model/Geometry.hpp"
#include "model/VideoGeometry.hpp"
#include "project/VideoEditProject.hpp"

#include <optional>

// How coded pictures come to be upright and cropped. All transforms are of pixels from top left corners.
// Pure, any thread.
namespace tessarin {

// A picture that has been turned as its track's transform says, with its top left corner at the origin.
struct UprightPicture {
  AffineTransform transform; // from the coded picture
  double width = 0;          // pixels
  double height = 0;
};
UprightPicture uprightPicture(const CompositionTrackForm& track);

// From a coded picture of the source, running or frozen, to the content: upright, cropped, and no larger than
// `contentRenderSize`. That is even and may be less than two pixels smaller than the crop; what is too much
// is left out at the right and at the top.
AffineTransform contentPlacement(const CompositionTrackForm& source, const NormalizedVideoCropDTO& crop,
                                 const SizeDTO& contentRenderSize);

// A place of the whole picture as a place of the crop, its edges included; nothing outside of it.
std::optional<NormalizedVideoPointDTO> pointInCrop(const NormalizedVideoPointDTO& point,
                                                   const NormalizedVideoCropDTO& crop);

} // namespace tessarin
