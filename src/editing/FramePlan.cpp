#include "editing/FramePlan.hpp"

#include "project/VideoEffectPlan.hpp"

#include <utility>

namespace tessarin {

namespace {

using Kind = VideoEditEffectKind;
using Effects = std::vector<const VideoEditEffectDTO*>;

bool follows(const ZoomVideoEffectDTO* zoom) {
  return zoom != nullptr && zoom->followCursor.value_or(false);
}

const ZoomVideoEffectDTO* lastZoom(const Effects& effects) {
  const ZoomVideoEffectDTO* last = nullptr;
  for (const VideoEditEffectDTO* effect : effects)
    if (const auto* const zoom = effect->as<Kind::zoom>())
      last = zoom;
  return last;
}

VideoLayerAnchorDTO anchorOf(const TextVideoEffectDTO& text) {
  return text.anchor.value_or(VideoLayerAnchorDTO::content);
}

// What an annotation is painted on; nothing for what is no annotation. Only texts may stand on the canvas.
std::optional<VideoLayerAnchorDTO> annotationAnchor(const VideoEditEffectDTO& effect) {
  switch (effect.kind()) {
  case Kind::highlight:
  case Kind::rectangle:
  case Kind::ellipse:
  case Kind::arrow:
  case Kind::number:
    return VideoLayerAnchorDTO::content;
  case Kind::text:
    return anchorOf(*effect.as<Kind::text>());
  case Kind::zoom:
  case Kind::redaction:
  case Kind::freeze:
  case Kind::interaction:
    break;
  }
  return std::nullopt;
}

// Puts the steps of one frame together, each part in its turn.
class FramePlanner {
 public:
  FramePlanner(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs)
      : instruction_(instruction), atMs_(atMs), active_(VideoEffectPlan::active(instruction.effects, atMs)) {}

  std::vector<FrameStep> steps() {
    const std::optional<ZoomStep> zoom = frameZoom(instruction_, atMs_);
    // On content that moves they move along; on content that only grows they stay where they were put.
    const bool redactsFirst = zoom && zoom->isFollowing;
    if (redactsFirst)
      addRedactions();
    if (zoom)
      steps_.emplace_back(*zoom);
    if (!redactsFirst)
      addRedactions();
    addLayers(VideoLayerAnchorDTO::content, zoom ? zoom->transform : VideoZoomTransform{});
    if (instruction_.output)
      steps_.emplace_back(CanvasStep{});
    addLayers(VideoLayerAnchorDTO::canvas, {});
    return std::move(steps_);
  }

 private:
  void addRedactions() {
    for (const VideoEditEffectDTO* effect : active_)
      if (const auto* const redaction = effect->as<Kind::redaction>())
        steps_.emplace_back(RedactionStep{redactionGeometry(*redaction, instruction_.contentRenderSize)});
  }

  void addLayers(VideoLayerAnchorDTO stage, const VideoZoomTransform& zoom) {
    const bool isContent = stage == VideoLayerAnchorDTO::content;
    const SizeDTO& size = isContent ? instruction_.contentRenderSize : instruction_.renderSize;
    addCamera(stage, size);
    for (const VideoEditEffectDTO* effect : active_)
      if (annotationAnchor(*effect) == stage)
        steps_.emplace_back(AnnotationStep{effect, size});
    if (isContent)
      addContentInteraction(zoom);
    else
      addCanvasShortcut();
  }

  void addCamera(VideoLayerAnchorDTO stage, const SizeDTO& size) {
    const std::optional<VideoCameraLayerDTO>& camera = instruction_.camera;
    if (!camera || !camera->visible || !instruction_.cameraTrack)
      return;
    const std::optional<VideoOutputVersionDTO>& output = instruction_.output;
    if ((output ? output->cameraAnchor : VideoLayerAnchorDTO::content) == stage)
      steps_.emplace_back(CameraStep{camera->at(atMs_), size});
  }

  bool shortcutIsOnCanvas() const {
    return instruction_.output && instruction_.output->shortcutAnchor == VideoLayerAnchorDTO::canvas;
  }

  void addContentInteraction(const VideoZoomTransform& zoom) {
    if (!instruction_.interaction)
      return;
    InteractionVideoEffectDTO shown = *instruction_.interaction;
    if (shortcutIsOnCanvas())
      shown.shortcutVisible = false;
    addInteraction(shown, instruction_.crop, zoom, instruction_.contentRenderSize);
  }

  void addCanvasShortcut() {
    if (!instruction_.interaction || !shortcutIsOnCanvas())
      return;
    InteractionVideoEffectDTO shown = *instruction_.interaction;
    shown.cursorVisible = false;
    shown.clickVisible = false;
    shown.dwellVisible = false;
    addInteraction(shown, {}, {}, instruction_.renderSize);
  }

  void addInteraction(const InteractionVideoEffectDTO& shown, const NormalizedVideoCropDTO& crop,
                      const VideoZoomTransform& zoom, const SizeDTO& size) {
    auto overlay = interactionOverlayPlan(instruction_.interactionIndex, shown, atMs_, crop, zoom, size);
    if (overlay)
      steps_.emplace_back(InteractionStep{std::move(*overlay)});
  }

  const VideoEffectCompositionInstruction& instruction_;
  const std::int64_t atMs_;
  const Effects active_;
  std::vector<FrameStep> steps_;
};

} // namespace

std::optional<ZoomStep> frameZoom(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs) {
  const CursorFollowPlan& plan = instruction.followPlan;
  const std::int64_t cameraMs = plan.cameraTime(atMs);
  const auto* const held = lastZoom(VideoEffectPlan::active(instruction.effects, cameraMs));
  if (follows(held))
    return ZoomStep{held, true, plan.transform(held, cameraMs)};
  const auto* const now = lastZoom(VideoEffectPlan::active(instruction.effects, atMs));
  if (now == nullptr || follows(now))
    return std::nullopt;
  return ZoomStep{now, false, fixedZoomTransform(*now, atMs)};
}

FramePlan framePlan(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs) {
  FramePlan plan;
  const auto freeze = VideoEffectPlan::freezeSourceTime(instruction.effects, atMs);
  if (freeze && instruction.freezeFrames.contains(*freeze))
    plan.freezeFrame = freeze;
  plan.steps = FramePlanner(instruction, atMs).steps();
  return plan;
}

} // namespace tessarin
