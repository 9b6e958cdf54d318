#include "editing/VideoEditCompositionPlan.hpp"

#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"

#include <algorithm>

namespace tessarin {

namespace {

float volumeOf(VideoEditAudioRole role, const VideoEditClipDTO& clip) {
  const bool isMuted =
      std::find(clip.mutedRoles.begin(), clip.mutedRoles.end(), role) != clip.mutedRoles.end();
  return isMuted ? 0.0F : static_cast<float>(clip.volume);
}

} // namespace

VideoEditCompositionPlan::VideoEditCompositionPlan(const VideoEditProjectDTO& project) {
  project.validate(project.source.sessionID, project.source.path);
  insertions.reserve(project.clips.size());
  audioInstructions.reserve(project.clips.size() * project.source.audioTracks.size());
  std::int64_t cursorMs = 0;
  for (const VideoEditClipDTO& clip : project.clips) {
    const std::int64_t outputMs = clip.span().outputDurationMs();
    if (outputMs < 1)
      fail(VideoEditExportError::invalidProject);
    const MediaTimeRange output{MediaTime::milliseconds(cursorMs), MediaTime::milliseconds(outputMs)};
    insertions.push_back({{MediaTime::milliseconds(clip.sourceStartMs),
                           MediaTime::milliseconds(clip.sourceEndMs - clip.sourceStartMs)},
                          output.start,
                          output.duration,
                          clip.rate});
    for (const VideoEditAudioTrackDTO& track : project.source.audioTracks)
      audioInstructions.push_back({track.sourceTrackIndex, track.role, output, volumeOf(track.role, clip)});
    cursorMs += outputMs;
  }
  outputDuration = MediaTime::milliseconds(cursorMs);
}

} // namespace tessarin
