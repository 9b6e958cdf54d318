#pragma once

#include "editing/EffectGeometry.hpp"
#include "editing/InteractionOverlayPlan.hpp"
#include "editing/VideoEffectCompositionInstruction.hpp"
#include "editing/VideoZoomTransform.hpp"
#include "model/AffineTransform.hpp"

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

// How one frame of an edit is painted, as a list of steps. The frame begins as the content: the source's
// picture, or a frozen one, upright and cropped (contentPlacement), of `contentRenderSize`. Where there is an
// output, one of the steps lays that on the canvas, and what follows is painted on the canvas, of
// `renderSize`. Pointers are into the instruction. Plain values, any thread.
namespace tessarin {

// Makes a part of the content unreadable.
struct RedactionStep {
  RedactionGeometry redaction;

  bool operator==(const RedactionStep&) const = default;
};

// Moves the content within its own size; what leaves it is cut off.
struct ZoomStep {
  const ZoomVideoEffectDTO* zoom = nullptr;
  bool isFollowing = false;
  VideoZoomTransform transform;

  bool operator==(const ZoomStep&) const = default;
};

// Lays the camera's upright picture over the frame; skipped where the camera has none.
struct CameraStep {
  VideoCameraLayerDTO layer; // as of the moment
  SizeDTO size;              // of the frame that it is a layer of

  bool operator==(const CameraStep&) const = default;
};

// Lays an annotation over the frame (annotationGeometry). It is the same in all frames that show it.
struct AnnotationStep {
  const VideoEditEffectDTO* effect = nullptr;
  SizeDTO size;

  bool operator==(const AnnotationStep&) const = default;
};

// Lays pointer, clicks and shortcut over the frame.
struct InteractionStep {
  InteractionOverlayPlan overlay;

  bool operator==(const InteractionStep&) const = default;
};

// Lays the content on the canvas (canvasComposition).
struct CanvasStep {
  bool operator==(const CanvasStep&) const = default;
};

using FrameStep =
    std::variant<RedactionStep, ZoomStep, CameraStep, AnnotationStep, InteractionStep, CanvasStep>;

struct FramePlan {
  // The key of the frozen picture that is shown instead of the source's.
  std::optional<std::int64_t> freezeFrame;
  std::vector<FrameStep> steps; // in order
};

// The frame at this moment of the output, in milliseconds. The instruction outlives the plan.
FramePlan framePlan(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs);

// The zoom of a moment, if any. One that follows the pointer stays as it is while the picture is frozen, and
// none begins to follow on a frozen picture; others go on as they would on a running one.
std::optional<ZoomStep> frameZoom(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs);

} // namespace tessarin
