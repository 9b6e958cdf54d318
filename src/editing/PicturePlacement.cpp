#include "editing/PicturePlacement.hpp"

#include "project/EditBounds.hpp"

namespace tessarin {

UprightPicture uprightPicture(const CompositionTrackForm& track) {
  const RectDTO bounds = track.preferredTransform.boundsOf({0, 0, track.naturalWidth, track.naturalHeight});
  return {track.preferredTransform.followedBy(AffineTransform::translation(-bounds.x, -bounds.y)),
          bounds.width, bounds.height};
}

// The crop's lower left corner is the one that stays.
AffineTransform contentPlacement(const CompositionTrackForm& source, const NormalizedVideoCropDTO& crop,
                                 const SizeDTO& contentRenderSize) {
  const UprightPicture upright = uprightPicture(source);
  const double left = upright.width * crop.x;
  const double bottom = upright.height * (crop.y + crop.height);
  return upright.transform.followedBy(
      AffineTransform::translation(-left, static_cast<double>(contentRenderSize.height) - bottom));
}

std::optional<NormalizedVideoPointDTO> pointInCrop(const NormalizedVideoPointDTO& point,
                                                   const NormalizedVideoCropDTO& crop) {
  const NormalizedVideoPointDTO inside{(point.x - crop.x) / crop.width, (point.y - crop.y) / crop.height};
  if (!editBounds::pointIsValid(inside))
    return std::nullopt;
  return inside;
}

} // namespace tessarin
