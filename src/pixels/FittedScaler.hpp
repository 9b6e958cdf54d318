#pragma once

#include "pixels/Canvas.hpp"
#include "pixels/ColorConversion.hpp"

#include <cstdint>
#include <memory>

namespace tessarin::pixels {

// Scales pictures of one size uniformly by the larger of the two factors that cover a target, centres them
// and crops what lies outside. Scaling down averages the area that a target pixel covers, so that thin
// strokes of text keep their weight; scaling up is bilinear; at factor one whole pixels are copied, and
// half pixels from centring go to the right and bottom.
//
// Immutable after construction but for a scratch row, so one thread at a time. Sizes are at least 1.
class FittedScaler {
 public:
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
