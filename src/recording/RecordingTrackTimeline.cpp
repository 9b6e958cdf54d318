#include "recording/RecordingTrackTimeline.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::RecordingTrackTimeline {

bool cameraMatches(std::int64_t screenDurationMs, std::int64_t cameraDurationMs, std::int64_t frameRate) {
  const double twoFrames = std::ceil(2000.0 / static_cast<double>(std::max<std::int64_t>(frameRate, 1)));
  const double tolerance = std::max(twoFrames, 100.0);
  return std::fabs(static_cast<double>(screenDurationMs) - static_cast<double>(cameraDurationMs)) <=
         tolerance;
}

} // namespace tessarin::RecordingTrackTimeline
