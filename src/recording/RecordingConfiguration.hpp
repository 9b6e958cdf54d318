#pragma once

#include "base/MediaTime.hpp"
#include "ports/Capture.hpp"
#include "recording/RecordingModels.hpp"

#include <cstdint>

namespace tessarin {

// The pixel geometry, pace and bit rate of a recording, computed once and passed to every later stage.
struct RecordingConfigurationPlan {
  RectDTO sourceRect;            // points; widened to whole pixels, coordinates of `sourceRectPoints`
  RectDTO captureRect;           // points; the same rectangle in global coordinates
  std::int64_t outputWidth = 0;  // pixels, even
  std::int64_t outputHeight = 0; // pixels, even
  MediaTime minimumFrameInterval;
  std::int64_t averageBitRate = 0; // bits per second

  bool operator==(const RecordingConfigurationPlan&) const = default;
};

// Pure; any thread; no failures.
namespace RecordingConfigurationBuilder {

RecordingConfigurationPlan plan(const ValidatedRecordingRequest& validated);

StreamConfiguration streamConfiguration(const RecordingConfigurationPlan& plan,
                                        const RecordingSettingsDTO& settings);

// Bits per second for pictures of that many pixels, between the bounds of codec and quality. The same rule
// for every video track of a recording.
std::int64_t averageBitRate(RecordingCodec codec, RecordingQuality quality, std::int64_t pixels,
                            std::int64_t frameRate);

} // namespace RecordingConfigurationBuilder

} // namespace tessarin
