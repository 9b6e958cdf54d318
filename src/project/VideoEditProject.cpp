#include "project/VideoEditProject.hpp"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace tessarin {

namespace {

bool isCaption(const TextVideoEffectDTO& text) {
  const std::string_view id = text.id;
  return id.starts_with("caption-en-") || id.starts_with("caption-zh-");
}

} // namespace

const VideoOutputVersionDTO* VideoEditProjectDTO::activeOutput() const {
  if (!outputVersions || !activeOutputID)
    return nullptr;
  const auto found = std::find_if(outputVersions->begin(), outputVersions->end(),
                                  [&](const auto& version) { return version.id == *activeOutputID; });
  return found == outputVersions->end() ? nullptr : &*found;
}

const VideoCameraLayerDTO* VideoEditProjectDTO::cameraInForce() const {
  const VideoOutputVersionDTO* active = activeOutput();
  if (active != nullptr && active->camera)
    return &*active->camera;
  return camera ? &*camera : nullptr;
}

bool VideoEditProjectDTO::activeOutputChangesFrame() const {
  const VideoOutputVersionDTO* active = activeOutput();
  if (active == nullptr)
    return false;
  const VideoCanvasConfigDTO& canvas = active->canvas;
  return canvas.widthPixels != croppedWidthPixels() || canvas.heightPixels != croppedHeightPixels() ||
         canvas.contentFrame || canvas.contentMode != VideoCanvasContentModeDTO::fit || canvas.offsetX != 0 ||
         canvas.offsetY != 0 || canvas.padding != 0 || canvas.cornerRadius != 0 || canvas.shadow;
}

std::vector<VideoEditEffectDTO> VideoEditProjectDTO::outputEffects() const {
  std::vector<VideoEditEffectDTO> effects = overlays;
  const VideoOutputVersionDTO* active = activeOutput();
  if (active == nullptr || !active->captionStyle)
    return effects;
  for (VideoEditEffectDTO& effect : effects) {
    auto* text = effect.as<VideoEditEffectKind::text>();
    if (text == nullptr || !isCaption(*text))
      continue;
    text->rect = active->captionStyle->rect;
    text->fontScale = active->captionStyle->fontScale;
    text->anchor = VideoLayerAnchorDTO::canvas;
  }
  return effects;
}

std::vector<ClipSpan> VideoEditProjectDTO::clipSpans() const {
  std::vector<ClipSpan> spans;
  spans.reserve(clips.size());
  for (const VideoEditClipDTO& clip : clips)
    spans.push_back(clip.span());
  return spans;
}

std::int64_t VideoEditProjectDTO::croppedWidthPixels() const {
  return evenFloor(crop.width * static_cast<double>(source.widthPixels));
}

std::int64_t VideoEditProjectDTO::croppedHeightPixels() const {
  return evenFloor(crop.height * static_cast<double>(source.heightPixels));
}

std::int64_t VideoEditProjectDTO::evenFloor(double value) {
  constexpr double tooLarge = 0x1p62; // far above any picture, and where the conversion is still safe
  const double floored = std::floor(value);
  if (!(floored > 2))
    return 2;
  return static_cast<std::int64_t>(std::min(floored, tooLarge)) & ~std::int64_t{1};
}

} // namespace tessarin
