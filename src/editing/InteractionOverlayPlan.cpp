#include "editing/InteractionOverlayPlan.hpp"

#include "editing/PicturePlacement.hpp"
#include "editing/VideoEffectColor.hpp"
#include "project/EditBounds.hpp"

#include <algorithm>
#include <array>

namespace tessarin {

namespace {

using VideoEffectColor::color;

// How far beyond what is shown a place still counts, so that a pointer that leaves it is cut off and does not
// vanish. Fractions of what is shown.
constexpr double nearestPlace = -0.1;
constexpr double farthestPlace = 1.1;

constexpr double dwellPart = 0.05; // of the shorter side
constexpr double smallestDwell = 28;
constexpr double haloAlpha = 0.55;
constexpr double haloLinePart = 0.12; // of the radius
constexpr double thinnestHalo = 3;
constexpr double spotlightPart = 1.4; // of the halo's radius
constexpr double spotlightShade = 0.32;

constexpr double clickMs = 650;
constexpr double clickPart = 0.012; // of the shorter side
constexpr double smallestClick = 8;
constexpr double ringGrowth = 2.2;
constexpr double ringAlpha = 0.85;
constexpr double ringLinePart = 0.2;
constexpr double thinnestRing = 2;
constexpr double pulseFrom = 1.7;
constexpr double pulseShrinkage = 0.5;
constexpr double pulseAlpha = 0.5;
constexpr double dotPart = 0.55;
constexpr double dotAlpha = 0.9;
constexpr double rightButtonPart = 0.2;
constexpr double rightButtonAlpha = 0.8;

constexpr double cursorPart = 0.032; // of the height, at the size 1
constexpr double cursorUnits = 34;
constexpr double cursorLine = 1.8; // units
// Units from the tip.
constexpr std::array<PixelPoint, 7> cursorOutline{
    {{0, 0}, {9, 33}, {16, 23}, {27, 40}, {33, 36}, {22, 19}, {33, 17}}};
constexpr double cursorShadowOffsetPart = 0.0025; // of the height
constexpr double cursorShadowBlurPart = 0.0035;
constexpr double cursorShadowAlpha = 0.72;

// From places in the whole picture to pixels.
struct Mapping {
  const NormalizedVideoCropDTO& crop;
  const VideoZoomTransform& zoom;
  const SizeDTO& size;

  std::optional<PixelPoint> operator()(const NormalizedVideoPointDTO& point) const {
    const auto inside = pointInCrop(point, crop);
    if (!inside)
      return std::nullopt;
    const NormalizedVideoPointDTO shown = zoom.apply(*inside);
    if (!editBounds::isWithin(shown.x, nearestPlace, farthestPlace) ||
        !editBounds::isWithin(shown.y, nearestPlace, farthestPlace))
      return std::nullopt;
    return pixelPoint(shown, size);
  }
};

std::variant<StrokedCircle, SpotlightMark> dwellMark(const InteractionVideoEffectDTO& effect,
                                                     const PixelPoint& center, const SizeDTO& size) {
  const double radius = std::max(shorterSideOf(size) * dwellPart, smallestDwell);
  switch (effect.dwellStyle) {
  case InteractionDwellStyleDTO::spotlight:
    return SpotlightMark{center, radius * spotlightPart, Color::gray(0, spotlightShade)};
  case InteractionDwellStyleDTO::halo:
    break;
  }
  return StrokedCircle{center, radius, std::max(radius * haloLinePart, thinnestHalo),
                       color(effect.clickColor, haloAlpha)};
}

// `done` is how much of the mark's time is over, 0 to 1; it fades as it goes.
std::variant<StrokedCircle, FilledCircle> clickShape(const InteractionVideoEffectDTO& effect,
                                                     const PixelPoint& center, double radius, double done) {
  const auto faded = [&](double alpha) { return color(effect.clickColor, (1 - done) * alpha); };
  switch (effect.clickStyle) {
  case InteractionClickStyleDTO::pulse:
    return FilledCircle{center, radius * (pulseFrom - pulseShrinkage * done), faded(pulseAlpha)};
  case InteractionClickStyleDTO::dot:
    return FilledCircle{center, radius * dotPart, faded(dotAlpha)};
  case InteractionClickStyleDTO::ring:
    break;
  }
  return StrokedCircle{center, radius * (1 + ringGrowth * done),
                       std::max(radius * ringLinePart, thinnestRing), faded(ringAlpha)};
}

ClickMark clickMark(const InteractionVideoEffectDTO& effect, const InteractionClickSample& click,
                    std::int64_t timeMs, const PixelPoint& center, const SizeDTO& size) {
  const double done = std::clamp(static_cast<double>(timeMs - click.timestampMs) / clickMs, 0.0, 1.0);
  const double radius = std::max(shorterSideOf(size) * clickPart, smallestClick);
  ClickMark mark{clickShape(effect, center, radius, done), std::nullopt};
  if (click.button == InteractionMouseButton::right)
    mark.inner =
        FilledCircle{center, radius * rightButtonPart, Color::gray(1, (1 - done) * rightButtonAlpha)};
  return mark;
}

CursorMark cursorMark(const InteractionVideoEffectDTO& effect, const PixelPoint& tip, const SizeDTO& size) {
  const auto height = static_cast<double>(size.height);
  const double unit = height * cursorPart * effect.cursorSize / cursorUnits;
  CursorMark mark;
  mark.outline.reserve(cursorOutline.size());
  for (const PixelPoint& point : cursorOutline)
    mark.outline.push_back({tip.x + unit * point.x, tip.y + unit * point.y});
  mark.fill = color(effect.cursorColor);
  mark.stroke = VideoEffectColor::contrastOutline(effect.cursorColor);
  mark.lineWidth = unit * cursorLine;
  if (effect.cursorShadow)
    mark.shadow = CursorShadow{height * cursorShadowOffsetPart, height * cursorShadowOffsetPart,
                               height * cursorShadowBlurPart, Color::gray(0, cursorShadowAlpha)};
  return mark;
}

} // namespace

std::optional<InteractionOverlayPlan>
interactionOverlayPlan(const InteractionEventIndex& index, const InteractionVideoEffectDTO& effect,
                       std::int64_t timeMs, const NormalizedVideoCropDTO& crop,
                       const VideoZoomTransform& zoom, const SizeDTO& renderSize) {
  if (!effect.visible || timeMs < effect.startMs || timeMs >= effect.endMs)
    return std::nullopt;
  const InteractionOverlayState state = index.state(timeMs, effect.dwellThresholdMs);
  const Mapping mapped{crop, zoom, renderSize};
  const auto cursor = state.cursor ? mapped(state.cursor->point) : std::nullopt;
  const auto click = state.click ? mapped(state.click->point) : std::nullopt;

  InteractionOverlayPlan plan;
  plan.size = renderSize;
  if (effect.dwellVisible && state.dwelling && cursor)
    plan.dwell = dwellMark(effect, *cursor, renderSize);
  if (effect.clickVisible && click)
    plan.click = clickMark(effect, *state.click, timeMs, *click, renderSize);
  // A pointer that the picture shows already is not drawn a second time.
  if (effect.cursorVisible && cursor && !state.cursor->rendering)
    plan.cursor = cursorMark(effect, *cursor, renderSize);
  if (effect.shortcutVisible && state.shortcut)
    plan.shortcut = ShortcutMark{state.shortcut->keys, effect.shortcutStyle};
  if (!plan.dwell && !plan.click && !plan.cursor && !plan.shortcut)
    return std::nullopt;
  return plan;
}

} // namespace tessarin
