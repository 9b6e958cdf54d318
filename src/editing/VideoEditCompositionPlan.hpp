#pragma once

#include "base/MediaTimeRange.hpp"
#include "project/VideoEditProject.hpp"

#include <cstdint>
#include <vector>

namespace tessarin {

// A stretch of the source and where it is laid. Times at a scale of 1000.
struct VideoEditCompositionInsertion {
  MediaTimeRange sourceRange;
  MediaTime outputStart;
  MediaTime outputDuration; // the source's by the rate, rounded
  double rate = 1;

  bool operator==(const VideoEditCompositionInsertion&) const = default;
};

// How loud one track is in one stretch of the output.
struct VideoEditAudioInstruction {
  std::int64_t sourceTrackIndex = 0; // among the source's sound tracks
  VideoEditAudioRole role = VideoEditAudioRole::system;
  MediaTimeRange outputRange;
  float volume = 1; // linear; 0 where the role is muted

  bool operator==(const VideoEditAudioInstruction&) const = default;
};

// The clips of a project end to end. Plain value, any thread.
struct VideoEditCompositionPlan {
  // Throws Failure<VideoEditExportError> as the project's own check does.
  explicit VideoEditCompositionPlan(const VideoEditProjectDTO& project);

  std::vector<VideoEditCompositionInsertion> insertions;    // one a clip
  std::vector<VideoEditAudioInstruction> audioInstructions; // clip by clip, track by track
  MediaTime outputDuration = MediaTime::milliseconds(0);

  bool operator==(const VideoEditCompositionPlan&) const = default;
};

} // namespace tessarin
