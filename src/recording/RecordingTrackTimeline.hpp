#pragma once

#include <cstdint>

namespace tessarin::RecordingTrackTimeline {

// The one rule for whether the lengths of two video tracks of a recording agree: within two frames, and
// within 100 ms in any case. Pure.
bool cameraMatches(std::int64_t screenDurationMs, std::int64_t cameraDurationMs, std::int64_t frameRate);

} // namespace tessarin::RecordingTrackTimeline
