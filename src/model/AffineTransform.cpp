#include "model/AffineTransform.hpp"

#include <algorithm>
#include <array>

namespace tessarin {

AffineTransform AffineTransform::followedBy(const AffineTransform& other) const {
  return {a * other.a + b * other.c,
          a * other.b + b * other.d,
          c * other.a + d * other.c,
          c * other.b + d * other.d,
          tx * other.a + ty * other.c + other.tx,
          tx * other.b + ty * other.d + other.ty};
}

RectDTO AffineTransform::boundsOf(const RectDTO& rect) const {
  const std::array xs{rect.x, rect.x + rect.width};
  const std::array ys{rect.y, rect.y + rect.height};
  double left = 0;
  double right = 0;
  double top = 0;
  double bottom = 0;
  bool isFirst = true;
  for (const double x : xs) {
    for (const double y : ys) {
      const double mappedX = a * x + c * y + tx;
      const double mappedY = b * x + d * y + ty;
      left = isFirst ? mappedX : std::min(left, mappedX);
      right = isFirst ? mappedX : std::max(right, mappedX);
      top = isFirst ? mappedY : std::min(top, mappedY);
      bottom = isFirst ? mappedY : std::max(bottom, mappedY);
      isFirst = false;
    }
  }
  return {left, top, right - left, bottom - top};
}

} // namespace tessarin
