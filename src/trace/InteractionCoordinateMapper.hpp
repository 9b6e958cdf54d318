#pragma once

#include "model/Geometry.hpp"
#include "model/VideoGeometry.hpp"
#include "ports/InteractionEvents.hpp"

#include <optional>

// Pure, any thread.
namespace tessarin::InteractionCoordinateMapper {

// The place of a point as fractions of the capture rectangle, both in global coordinates. Nothing for a point
// outside it (its edges are inside), for numbers that are not finite and for a rectangle without area.
std::optional<NormalizedVideoPointDTO> topLeftNormalizedPoint(const PointerLocation& globalPoint,
                                                              const RectDTO& captureRect);

} // namespace tessarin::InteractionCoordinateMapper
