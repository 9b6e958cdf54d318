#include "trace/InteractionCoordinateMapper.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::InteractionCoordinateMapper {

namespace {

std::optional<double> fraction(double value, double start, double length) {
  const double end = start + length;
  if (!std::isfinite(end) || !(value >= start && value <= end))
    return std::nullopt;
  // The end is rounded; a point on it is at 1 all the same.
  return std::min((value - start) / length, 1.0);
}

} // namespace

std::optional<NormalizedVideoPointDTO> topLeftNormalizedPoint(const PointerLocation& globalPoint,
                                                              const RectDTO& captureRect) {
  if (!captureRect.isFiniteAndPositive())
    return std::nullopt;
  const std::optional<double> x = fraction(globalPoint.x, captureRect.x, captureRect.width);
  const std::optional<double> y = fraction(globalPoint.y, captureRect.y, captureRect.height);
  if (!x || !y)
    return std::nullopt;
  return NormalizedVideoPointDTO{*x, *y};
}

} // namespace tessarin::InteractionCoordinateMapper
