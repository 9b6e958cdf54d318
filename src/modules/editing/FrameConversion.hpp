#pragma once

#include "container/Movie.hpp"
#include "model/AffineTransform.hpp"
#include "model/Picture.hpp"
#include "modules/editing/PictureMemory.hpp"
#include "modules/editing/PictureReader.hpp"

#include <cstdint>

// From one form of picture to another. No state; any thread. Failures are MovieEditingFailure.
namespace tessarin::editing {

// How the pictures of a track are shown, by its matrix.
AffineTransform transformOf(const container::Track& track);
// Of the track's pictures as coded, in square pixels.
PixelSize naturalSizeOf(const container::Track& track);
// The same rounded down to even numbers, which is what an editor makes of it. May be zero.
PixelSize evenSizeOf(const container::Track& track);
// Whether nothing was rounded for that.
bool hasEvenSize(const container::Track& track);

// The decoded picture as the screen shows it, by the matrix and range that it tells; BT.709 in video range
// where it tells nothing. Scaled to the size. notComposable for a form of
// pixels that is not known.
Picture bgrxPicture(const AVFrame& frame, PixelSize size, PictureMemory& memory);

// Where pictures of a track go when they are coded anew without being painted.
struct PictureShape {
  int quarterTurns = 0;    // clockwise
  bool isMirrored = false; // left and right are swapped after the turn
  PixelSize size;          // of the result, even
};

// Upright by the track's transform, and cropped at the right and below to even sizes. notComposable for a
// transform that turns by other than right angles, or a size below two pixels.
PictureShape uprightShape(const container::Track& track);

// The picture in 4:2:0, BT.709 and video range, in the shape. The same frame where nothing is to be done.
SharedFrame shaped(const SharedFrame& frame, const PictureShape& shape, PictureMemory& memory);

// The same for a picture now and then.
inline SharedFrame shaped(const SharedFrame& frame, const PictureShape& shape) {
  PictureMemory memory;
  return shaped(frame, shape, memory);
}

} // namespace tessarin::editing
