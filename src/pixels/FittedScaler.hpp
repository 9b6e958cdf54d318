#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/ColorConversion.hpp"

#include <cstdint>
#include <memory>

namespace tessarin::pixels {

// The part of a target that a picture is to fill, in pixels from the target's top left. Its edges may lie
// between pixels, but each of the target's pixels has some of it.
struct FittedArea {
  std::int32_t width = 0; // of the target
  std::int32_t height = 0;
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
  bool isMirrored = false; // the picture's left is shown at the right

  static FittedArea whole(std::int32_t width, std::int32_t height) {
    return {width, height, 0, 0, static_cast<double>(width), static_cast<double>(height)};
  }
  bool operator==(const FittedArea&) const = default;
};

// Scales pictures of one size uniformly by the larger of the two factors that cover a target or a part of
// it, centres them there and crops what lies outside. Scaling down averages the area that a target pixel
// covers, so that thin strokes of text keep their weight; scaling up is bilinear; at factor one whole pixels
// are copied, and half pixels from centring go to the right and bottom. A pixel at an edge that lies between
// pixels has the colour of what is within.
//
// Immutable after construction but for a scratch row, so one thread at a time. Sizes are at least 1.
class FittedScaler {
 public:
  FittedScaler(std::int32_t sourceWidth, std::int32_t sourceHeight, const FittedArea& area);
  FittedScaler(std::int32_t sourceWidth, std::int32_t sourceHeight, std::int32_t targetWidth,
               std::int32_t targetHeight);
  ~FittedScaler();
  FittedScaler(FittedScaler&&) noexcept;
  FittedScaler& operator=(FittedScaler&&) noexcept;

  bool takes(const PictureView& source) const;

  // Four bytes a pixel in either format; the fourth is scaled like the others. The source is of the size
  // given.
  void scale(const PictureView& source, const Canvas& target);

  // The same, converted at once; the target's size is even.
  void scaleToI420(const PictureView& source, const I420Planes& target);

 private:
  struct Plan;
  std::unique_ptr<Plan> plan_;
};

} // namespace tessarin::pixels
