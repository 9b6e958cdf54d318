#include "editing/CanvasLayout.hpp"

#include "editing/VideoEffectColor.hpp"

#include <algorithm>

namespace tessarin {

namespace {

constexpr double smallestSide = 2; // of the available rectangle

constexpr double backgroundBlurPart = 0.025; // of the canvas's shorter side
constexpr double leastBackgroundBlur = 18;

constexpr double shadowOffsetPart = 0.012; // of the canvas's height
constexpr double leastShadowOffset = 4;
constexpr double shadowBlurPart = 0.012; // of the canvas's shorter side
constexpr double leastShadowBlur = 6;
constexpr double shadowOpacity = 0.45;

SizeDTO sizeOf(const VideoCanvasConfigDTO& canvas) {
  return {canvas.widthPixels, canvas.heightPixels};
}

RectDTO wholeOf(const SizeDTO& size) {
  return {0, 0, static_cast<double>(size.width), static_cast<double>(size.height)};
}

// Where padding leaves less than the smallest height, the lower edge stays where the padding puts it.
RectDTO availableRectOf(const VideoCanvasConfigDTO& canvas) {
  const SizeDTO size = sizeOf(canvas);
  const RectDTO frame = pixelRect(canvas.contentFrame.value_or(NormalizedVideoRectDTO{0, 0, 1, 1}), size);
  const double padding = canvas.padding * shorterSideOf(size);
  const double width = std::max(frame.width - 2 * padding, smallestSide);
  const double height = std::max(frame.height - 2 * padding, smallestSide);
  const double bottom = frame.y + frame.height - padding;
  return {frame.x + padding, bottom - height, width, height};
}

double scaleOf(const SizeDTO& contentSize, const RectDTO& available, const VideoCanvasConfigDTO& canvas) {
  const double across = available.width / static_cast<double>(contentSize.width);
  const double along = available.height / static_cast<double>(contentSize.height);
  switch (canvas.contentMode) {
  case VideoCanvasContentModeDTO::fill:
    return std::max(across, along);
  case VideoCanvasContentModeDTO::manual:
    return std::min(across, along) * canvas.manualScale;
  case VideoCanvasContentModeDTO::fit:
    break;
  }
  return std::min(across, along);
}

// As small as covers the target, and centered on it.
AffineTransform covering(const SizeDTO& contentSize, const RectDTO& target) {
  const auto width = static_cast<double>(contentSize.width);
  const auto height = static_cast<double>(contentSize.height);
  const double scale = std::max(target.width / width, target.height / height);
  const PixelPoint center = centerOf(target);
  return {scale, 0, 0, scale, center.x - width * scale / 2, center.y - height * scale / 2};
}

std::variant<Color, GradientBackground, BlurBackground> backgroundOf(const SizeDTO& contentSize,
                                                                     const VideoCanvasConfigDTO& canvas) {
  const VideoCanvasBackgroundDTO& background = canvas.background;
  const SizeDTO size = sizeOf(canvas);
  switch (background.kind) {
  case VideoCanvasBackgroundKindDTO::gradient:
    return GradientBackground{CSSGradientGeometry::endpoints(background.angleDegrees, wholeOf(size)),
                              VideoEffectColor::color(background.color),
                              VideoEffectColor::color(background.secondaryColor)};
  case VideoCanvasBackgroundKindDTO::blur:
    return BlurBackground{covering(contentSize, wholeOf(size)),
                          std::max(shorterSideOf(size) * backgroundBlurPart, leastBackgroundBlur)};
  case VideoCanvasBackgroundKindDTO::solid:
    break;
  }
  return VideoEffectColor::color(background.color);
}

CanvasShadow shadowOn(const SizeDTO& size) {
  return {std::max(static_cast<double>(size.height) * shadowOffsetPart, leastShadowOffset),
          std::max(shorterSideOf(size) * shadowBlurPart, leastShadowBlur), shadowOpacity};
}

} // namespace

CanvasLayout canvasLayout(const SizeDTO& contentSize, const VideoCanvasConfigDTO& canvas) {
  const RectDTO available = availableRectOf(canvas);
  const double scale = scaleOf(contentSize, available, canvas);
  const double width = static_cast<double>(contentSize.width) * scale;
  const double height = static_cast<double>(contentSize.height) * scale;
  const PixelPoint center = centerOf(available);
  const PixelPoint offset = pixelPoint({canvas.offsetX, canvas.offsetY}, sizeOf(canvas));
  return {{center.x - width / 2 + offset.x, center.y - height / 2 + offset.y, width, height}, available};
}

CanvasComposition canvasComposition(const SizeDTO& contentSize, const VideoCanvasConfigDTO& canvas) {
  CanvasComposition result;
  result.size = sizeOf(canvas);
  result.background = backgroundOf(contentSize, canvas);
  if (canvas.shadow)
    result.shadow = shadowOn(result.size);
  result.contentRect = canvasLayout(contentSize, canvas).contentRect;
  result.contentPlacement = covering(contentSize, result.contentRect);
  if (canvas.cornerRadius > 0)
    result.cornerRadius = canvas.cornerRadius * std::min(result.contentRect.width, result.contentRect.height);
  return result;
}

} // namespace tessarin
