#pragma once

#include "model/Geometry.hpp"
#include "recording/RecordingModels.hpp"

#include <optional>

namespace tessarin {

// Where the camera's picture stands over a recording until somebody moves it. Pure; any thread.
namespace CameraOverlayLayout {

// Pixels of the canvas, of which both sides count as 2 at least. A fifth of its width, 384 pixels at most,
// by three quarters of that, whole and even. A placement tells how much of the free way is to the left and
// above; without one the rectangle lies in the corner, up to 24 pixels off both edges.
RectDTO rect(const SizeDTO& canvas, CameraPosition position,
             const std::optional<RecordingCameraPlacementDTO>& placement);

} // namespace CameraOverlayLayout

} // namespace tessarin
