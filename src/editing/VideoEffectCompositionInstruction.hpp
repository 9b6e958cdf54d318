#pragma once

#include "editing/CursorFollowPlan.hpp"
#include "model/AffineTransform.hpp"
#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "project/VideoEditProject.hpp"
#include "trace/InteractionEventIndex.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace tessarin {

// A video track as a compositor gets its pictures, and how they are shown.
struct CompositionTrackForm {
  double naturalWidth = 0; // pixels, before the transform
  double naturalHeight = 0;
  AffineTransform preferredTransform;
};

// All that the frames of an export are painted by but the pictures themselves; one for the whole output,
// whose times are milliseconds of the output. Immutable once made, so readable from any number of threads.
struct VideoEffectCompositionInstruction {
  CompositionTrackForm source;
  NormalizedVideoCropDTO crop;
  SizeDTO contentRenderSize; // of the cropped picture, even
  SizeDTO renderSize;        // of the output
  std::optional<VideoOutputVersionDTO> output;
  std::optional<CompositionTrackForm> cameraTrack;
  std::optional<VideoCameraLayerDTO> camera; // in force, its way in times of the output
  std::vector<VideoEditEffectDTO> effects;
  std::map<std::int64_t, Picture> freezeFrames; // by their time in the source; as coded
  std::optional<InteractionVideoEffectDTO> interaction;
  InteractionEventIndex interactionIndex; // on the output
  CursorFollowPlan followPlan;
};

} // namespace tessarin
