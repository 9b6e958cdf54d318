#include "editing/VideoEditComposition.hpp"

#include "base/Failure.hpp"
#include "editing/VideoEditCompositionPlan.hpp"
#include "editing/VideoEditCropPlan.hpp"
#include "editing/VideoEditDecisions.hpp"
#include "model/MediaErrors.hpp"
#include "trace/InteractionEventFile.hpp"
#include "trace/InteractionEventTimeline.hpp"

#include <algorithm>

namespace tessarin {

namespace {

using enum VideoEditExportError;
using Kind = VideoEditEffectKind;

constexpr double fastFrameRate = 50; // from here on the output has 60 frames a second, else 30

MediaAsset composableAsset(MediaAssets& assets, const std::string& path) {
  try {
    MediaAsset asset = assets.asset(path);
    if (!asset.isComposable || asset.videoTracks.empty())
      fail(invalidMedia);
    return asset;
  } catch (const MovieEditingFailure&) {
    fail(invalidMedia);
  }
}

CompositionTrackForm formOf(const AssetVideoTrack& track) {
  return {track.naturalWidth, track.naturalHeight, track.preferredTransform};
}

void checkSource(const MediaAsset& asset, const VideoEditProjectDTO& project) {
  if (!asset.duration.isNumeric() || asset.duration <= MediaTime::zero())
    fail(invalidMedia);
  const auto count = static_cast<std::int64_t>(asset.audioTracks.size());
  for (const VideoEditAudioTrackDTO& track : project.source.audioTracks)
    if (track.sourceTrackIndex < 0 || track.sourceTrackIndex >= count)
      fail(invalidMedia);
}

MovieComposition movieOf(const VideoEditCompositionPlan& plan, const VideoEditProjectDTO& project,
                         const std::string& sourcePath) {
  MovieComposition movie{.sourcePath = sourcePath, .segments = {}, .audioLanes = {}};
  movie.segments.reserve(plan.insertions.size());
  for (const VideoEditCompositionInsertion& each : plan.insertions)
    movie.segments.push_back({each.sourceRange, {each.outputStart, each.outputDuration}});
  movie.audioLanes.reserve(project.source.audioTracks.size());
  for (const VideoEditAudioTrackDTO& track : project.source.audioTracks) {
    MovieAudioLane lane{static_cast<std::size_t>(track.sourceTrackIndex), {}};
    for (const VideoEditAudioInstruction& each : plan.audioInstructions)
      if (each.sourceTrackIndex == track.sourceTrackIndex)
        lane.volumes.push_back(each.volume);
    movie.audioLanes.push_back(std::move(lane));
  }
  return movie;
}

// Each frozen picture once, untouched, so that it goes through what a running one does.
std::map<std::int64_t, Picture> freezeFramesOf(const std::vector<VideoEditEffectDTO>& effects,
                                               MediaAssets& assets, const std::string& sourcePath) {
  std::map<std::int64_t, Picture> frames;
  for (const VideoEditEffectDTO& effect : effects) {
    const auto* const freeze = effect.as<Kind::freeze>();
    if (freeze != nullptr && !frames.contains(freeze->sourceTimeMs))
      frames[freeze->sourceTimeMs] =
          assets.picture(sourcePath, MediaTime::milliseconds(freeze->sourceTimeMs));
  }
  return frames;
}

bool followsCursor(const VideoEditEffectDTO& effect) {
  const auto* const zoom = effect.as<Kind::zoom>();
  return zoom != nullptr && zoom->followCursor.value_or(false);
}

// Reads the trace only where something shows it or follows it.
void addInteraction(VideoEffectCompositionInstruction& instruction, const VideoEditProjectDTO& project,
                    FileSystem& files) {
  const auto& effects = instruction.effects;
  const auto found = std::find_if(effects.begin(), effects.end(),
                                  [](const auto& each) { return each.kind() == Kind::interaction; });
  const bool isFollowed = std::any_of(effects.begin(), effects.end(), followsCursor);
  if (found == effects.end()) {
    if (isFollowed)
      fail(invalidProject);
    return;
  }
  const InteractionVideoEffectDTO& interaction = *found->as<Kind::interaction>();
  instruction.interaction = interaction;
  if (!interaction.visible && !isFollowed)
    return;
  const std::vector<ClipSpan> clips = project.clipSpans();
  instruction.interactionIndex = InteractionEventIndex(InteractionEventTimeline::mapToOutput(
      InteractionEventFile::load(files, interaction.sourcePath), clips));
  instruction.followPlan =
      CursorFollowPlan(clips, effects, instruction.crop, instruction.interactionIndex.cursors());
}

} // namespace

VideoEditComposition buildComposition(const ValidatedVideoEditExportRequest& request, MediaAssets& assets,
                                      FileSystem& files) {
  const VideoEditProjectDTO& project = request.request.project;
  const MediaAsset asset = composableAsset(assets, request.sourceURL);
  checkSource(asset, project);
  const AssetVideoTrack& video = asset.videoTracks.front();
  const CompositionTrackForm source = formOf(video);
  const VideoEditCropPlan cropPlan(source.naturalWidth, source.naturalHeight, source.preferredTransform,
                                   project.crop);
  const VideoEditCompositionPlan plan(project);
  const VideoCameraLayerDTO* const camera = project.cameraInForce();
  std::optional<CompositionTrackForm> cameraTrack;
  if (request.cameraURL && camera != nullptr && camera->visible)
    cameraTrack = formOf(composableAsset(assets, *request.cameraURL).videoTracks.front());

  VideoEditComposition result;
  result.movie = movieOf(plan, project, request.sourceURL);
  result.expectedSize = cropPlan.renderSize();
  result.frameDuration = MediaTime(1, video.nominalFrameRate >= fastFrameRate ? 60 : 30);
  if (!requiresCustomCompositor(project))
    return result;

  VideoEffectCompositionInstruction instruction;
  instruction.source = source;
  instruction.crop = project.crop;
  instruction.contentRenderSize = cropPlan.renderSize();
  instruction.renderSize = instruction.contentRenderSize;
  if (const VideoOutputVersionDTO* const output = project.activeOutput(); output != nullptr) {
    instruction.output = *output;
    instruction.renderSize = {output->canvas.widthPixels, output->canvas.heightPixels};
  }
  instruction.cameraTrack = cameraTrack;
  if (camera != nullptr)
    instruction.camera = camera->mappedToOutput(project.clipSpans());
  instruction.effects = project.outputEffects();
  instruction.freezeFrames = freezeFramesOf(instruction.effects, assets, request.sourceURL);
  addInteraction(instruction, project, files);
  result.expectedSize = instruction.renderSize;
  result.instruction = std::move(instruction);
  return result;
}

} // namespace tessarin
