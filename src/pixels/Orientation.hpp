#pragma once

#include "model/AffineTransform.hpp"
#include "pixels/Canvas.hpp"

#include <optional>

// Quarter turns and mirror images, which move pixels and change none. Any thread, no state.
namespace tessarin::pixels {

// First columns become rows, then left and right change places, and then top and bottom.
struct Orientation {
  bool isTransposed = false;
  bool isMirrored = false;
  bool isFlipped = false;

  bool operator==(const Orientation&) const = default;
};

// That of a transform which turns by quarters and mirrors, wherever it moves the picture; nothing of any
// other. What it stretches by less than 1/1024 of a pixel over `longestSide` pixels does not count.
std::optional<Orientation> orientationOf(const AffineTransform& transform, double longestSide);

// The target has the source's size, with width and height exchanged where it is transposed, and does not
// overlap it.
void orientPixels(const PictureView& source, const Orientation& orientation, const Canvas& target);

} // namespace tessarin::pixels
