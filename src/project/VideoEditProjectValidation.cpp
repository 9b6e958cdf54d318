#include "project/VideoEditProject.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "project/CharacterCount.hpp"
#include "project/EditBounds.hpp"
#include "project/EditPaths.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <unordered_set>

namespace tessarin {

namespace {

using namespace editBounds;

constexpr std::int64_t currentSchemaVersion = 2;
constexpr std::int64_t shortestMs = 100; // of clips and effects
constexpr std::int64_t largestCameraDifferenceMs = 1500;
constexpr std::size_t mostCameraPositions = 8192;
constexpr std::size_t mostIdCharacters = 128;
constexpr std::int64_t mostFollowZooms = 128;
constexpr std::int64_t mostFollowZoomMs = 7'200'000; // two hours
constexpr std::array rates{0.5, 1.0, 1.5, 2.0, 3.0};
constexpr std::array narrationStrengths{0.25, 0.5, 0.75, 1.0};

void require(bool condition) {
  if (!condition)
    fail(VideoEditExportError::invalidProject);
}

template<class Range, class Value> bool contains(const Range& range, const Value& value) {
  return std::find(range.begin(), range.end(), value) != range.end();
}

bool hasTrack(const VideoEditSourceDTO& source, VideoEditAudioRole role) {
  return std::any_of(source.audioTracks.begin(), source.audioTracks.end(),
                     [role](const VideoEditAudioTrackDTO& track) { return track.role == role; });
}

bool idIsValid(const std::string& id) {
  return !id.empty() && hasAtMostCharacters(id, mostIdCharacters);
}

// Both ends are checked before their distance, which would not fit 64 bits for every pair of them.
bool lastsLongEnough(std::int64_t startMs, std::int64_t endMs) {
  return startMs >= 0 && endMs >= startMs && endMs - startMs >= shortestMs;
}

void validateNarration(const VideoEditProjectDTO& project) {
  if (!project.narrationAudio)
    return;
  require(contains(narrationStrengths, project.narrationAudio->strength));
  require(hasTrack(project.source, VideoEditAudioRole::microphone));
}

void validateAudioTracks(const std::vector<VideoEditAudioTrackDTO>& tracks) {
  std::vector<VideoEditAudioRole> roles;
  std::unordered_set<std::int64_t> indices;
  for (const VideoEditAudioTrackDTO& track : tracks) {
    require(!contains(roles, track.role));
    roles.push_back(track.role);
    require(indices.insert(track.sourceTrackIndex).second);
  }
  require(tracks.size() <= 1 || !contains(roles, VideoEditAudioRole::mixed));
}

void validateCameraSource(const VideoEditProjectDTO& project) {
  const VideoEditSourceDTO& source = project.source;
  if (!source.camera) {
    require(!project.camera);
    return;
  }
  const VideoCameraSourceDTO& camera = *source.camera;
  require(haveSameParent(camera.path, source.path) && lastPathComponent(camera.path) == editCameraFileName);
  require(camera.durationMs >= 1 &&
          std::abs(camera.durationMs - source.durationMs) <= largestCameraDifferenceMs);
  require(camera.widthPixels >= 1 && camera.heightPixels >= 1);
  require(project.camera && rectIsValid(project.camera->rect));
}

void validateCameraLayer(const std::optional<VideoCameraLayerDTO>& layer, const VideoEditSourceDTO& source) {
  if (!layer)
    return;
  require(source.camera.has_value());
  require(rectIsValid(layer->rect));
  if (!layer->recordedPositions)
    return;
  const std::vector<VideoCameraPositionDTO>& positions = *layer->recordedPositions;
  require(!positions.empty() && positions.size() <= mostCameraPositions);
  require(positions.front().sourceTimeMs == 0);
  std::int64_t previousMs = -1;
  for (const VideoCameraPositionDTO& position : positions) {
    require(position.sourceTimeMs > previousMs && position.sourceTimeMs <= source.durationMs);
    require(rectIsValid(position.rect));
    previousMs = position.sourceTimeMs;
  }
}

void validateCameraLayers(const VideoEditProjectDTO& project) {
  validateCameraLayer(project.camera, project.source);
  if (project.outputVersions)
    for (const VideoOutputVersionDTO& version : *project.outputVersions)
      validateCameraLayer(version.camera, project.source);
}

void validateMutedRoles(const std::vector<VideoEditAudioRole>& muted, const VideoEditSourceDTO& source) {
  for (auto role = muted.begin(); role != muted.end(); ++role) {
    require(std::find(muted.begin(), role, *role) == role);
    require(hasTrack(source, *role));
  }
}

void validateClips(const VideoEditProjectDTO& project) {
  std::unordered_set<std::string_view> ids;
  std::int64_t previousEndMs = 0;
  for (const VideoEditClipDTO& clip : project.clips) {
    require(!clip.id.empty() && ids.insert(clip.id).second);
    require(clip.sourceStartMs >= previousEndMs);
    require(lastsLongEnough(clip.sourceStartMs, clip.sourceEndMs));
    require(clip.sourceEndMs <= project.source.durationMs);
    require(contains(rates, clip.rate));
    require(isWithin(clip.volume, 0, 2.0));
    validateMutedRoles(clip.mutedRoles, project.source);
    previousEndMs = clip.sourceEndMs;
  }
}

// How long the output is. The clips passed their check; what they come to may be beyond every clock all the
// same.
std::int64_t outputDurationMs(const std::vector<VideoEditClipDTO>& clips) {
  constexpr double beyondEveryClock = 0x1p62;
  std::int64_t totalMs = 0;
  for (const VideoEditClipDTO& clip : clips) {
    require(static_cast<double>(clip.sourceEndMs - clip.sourceStartMs) / clip.rate < beyondEveryClock);
    require(!__builtin_add_overflow(totalMs, clip.span().outputDurationMs(), &totalMs));
  }
  return totalMs;
}

// What the effects before have used up.
struct EffectsSoFar {
  std::unordered_set<std::string_view> ids;
  bool haveInteraction = false;
  std::int64_t followZooms = 0;
  std::int64_t followZoomMs = 0; // at most one effect's length more than may be
};

void validateInteraction(const InteractionVideoEffectDTO& interaction, const VideoEditSourceDTO& source,
                         EffectsSoFar& soFar) {
  require(!soFar.haveInteraction);
  soFar.haveInteraction = true;
  require(haveSameParent(interaction.sourcePath, source.path) &&
          lastPathComponent(interaction.sourcePath) == editInteractionFileName);
}

void noteZoom(const ZoomVideoEffectDTO& zoom, EffectsSoFar& soFar) {
  if (!zoom.followCursor.value_or(false))
    return;
  ++soFar.followZooms;
  if (soFar.followZoomMs <= mostFollowZoomMs)
    soFar.followZoomMs += std::min(zoom.endMs - zoom.startMs, mostFollowZoomMs + 1);
}

void validateEffects(const VideoEditProjectDTO& project, std::int64_t totalMs) {
  EffectsSoFar soFar;
  for (const VideoEditEffectDTO& effect : project.overlays) {
    require(idIsValid(effect.id()) && soFar.ids.insert(effect.id()).second);
    require(lastsLongEnough(effect.startMs(), effect.endMs()));
    require(effect.endMs() <= totalMs);
    require(effect.payloadIsValid(project.source.durationMs));
    if (const auto* interaction = effect.as<VideoEditEffectKind::interaction>())
      validateInteraction(*interaction, project.source, soFar);
    else if (const auto* zoom = effect.as<VideoEditEffectKind::zoom>())
      noteZoom(*zoom, soFar);
  }
  if (soFar.followZooms == 0)
    return;
  require(soFar.haveInteraction);
  require(soFar.followZooms <= mostFollowZooms);
  require(soFar.followZoomMs <= mostFollowZoomMs);
}

} // namespace

void VideoEditProjectDTO::validate(const std::string& sessionID, const std::string& sourcePath) const {
  validateNarration(*this);
  require(schemaVersion == currentSchemaVersion && revision >= 0);
  require(source.sessionID == sessionID && source.path == sourcePath);
  require(source.durationMs >= 1 && source.widthPixels >= 1 && source.heightPixels >= 1);
  require(!clips.empty());
  validateAudioTracks(source.audioTracks);
  validateCameraSource(*this);
  validateCameraLayers(*this);
  validateClips(*this);
  if (!rectIsValid(crop))
    fail(VideoEditExportError::invalidCrop);
  const std::int64_t totalMs = outputDurationMs(clips);
  validateEffects(*this, totalMs);
  require(!coverFrameMs || (*coverFrameMs >= 0 && *coverFrameMs < totalMs));
  validateOutputs();
}

} // namespace tessarin
