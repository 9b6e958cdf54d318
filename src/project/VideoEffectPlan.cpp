#include "project/VideoEffectPlan.hpp"

#include <algorithm>

namespace tessarin::VideoEffectPlan {

namespace {

constexpr double longestRampMs = 250;

bool lastsAt(const VideoEditEffectDTO& effect, std::int64_t atMs) {
  return effect.startMs() <= atMs && atMs < effect.endMs();
}

bool isHidden(const VideoEditEffectDTO& effect) {
  const auto* text = effect.as<VideoEditEffectKind::text>();
  return text != nullptr && !text->visible.value_or(true);
}

// What is painted first has the lowest.
int paintRank(VideoEditEffectKind kind) {
  switch (kind) {
  case VideoEditEffectKind::freeze:
    return 0;
  case VideoEditEffectKind::zoom:
    return 1;
  case VideoEditEffectKind::redaction:
    return 2;
  case VideoEditEffectKind::highlight:
    return 3;
  case VideoEditEffectKind::rectangle:
  case VideoEditEffectKind::ellipse:
    return 4;
  case VideoEditEffectKind::arrow:
    return 5;
  case VideoEditEffectKind::text:
    return 6;
  case VideoEditEffectKind::number:
    return 7;
  case VideoEditEffectKind::interaction:
    break;
  }
  return 8;
}

// 0 to 1 with no slope at either end; the smoothstep 3 u² - 2 u³.
double eased(double fraction) {
  const double u = std::clamp(fraction, 0.0, 1.0);
  return u * u * (3 - 2 * u);
}

} // namespace

std::vector<const VideoEditEffectDTO*> active(const std::vector<VideoEditEffectDTO>& effects,
                                              std::int64_t atMs) {
  std::vector<const VideoEditEffectDTO*> shown;
  shown.reserve(effects.size());
  for (const VideoEditEffectDTO& effect : effects)
    if (!isHidden(effect) && lastsAt(effect, atMs))
      shown.push_back(&effect);
  std::stable_sort(shown.begin(), shown.end(),
                   [](const auto* a, const auto* b) { return paintRank(a->kind()) < paintRank(b->kind()); });
  return shown;
}

double zoomScale(const ZoomVideoEffectDTO& zoom, std::int64_t atMs) {
  if (atMs < zoom.startMs || atMs >= zoom.endMs)
    return 1;
  const double rampMs = std::min(static_cast<double>(zoom.endMs - zoom.startMs) * 0.5, longestRampMs);
  const double in = eased(static_cast<double>(atMs - zoom.startMs) / rampMs);
  const double out = eased(static_cast<double>(zoom.endMs - atMs) / rampMs);
  return std::min(in, out) * (zoom.scale - 1) + 1;
}

std::optional<std::int64_t> freezeSourceTime(const std::vector<VideoEditEffectDTO>& effects,
                                             std::int64_t atMs) {
  for (auto effect = effects.rbegin(); effect != effects.rend(); ++effect) {
    const auto* freeze = effect->as<VideoEditEffectKind::freeze>();
    if (freeze != nullptr && lastsAt(*effect, atMs))
      return freeze->sourceTimeMs;
  }
  return std::nullopt;
}

} // namespace tessarin::VideoEffectPlan
