#include "editing/CursorFollowPlan.hpp"

#include "editing/CursorFollowPath.hpp"

#include <algorithm>
#include <iterator>

namespace tessarin {

namespace {

using Kind = VideoEditEffectKind;
using Sample = CursorFollowPlan::Sample;
using Span = CursorFollowPlan::Span;

std::vector<const ZoomVideoEffectDTO*> followingZooms(const std::vector<VideoEditEffectDTO>& effects) {
  std::vector<const ZoomVideoEffectDTO*> zooms;
  for (const VideoEditEffectDTO& effect : effects) {
    const auto* const zoom = effect.as<Kind::zoom>();
    if (zoom != nullptr && zoom->followCursor.value_or(false))
      zooms.push_back(zoom);
  }
  return zooms;
}

std::vector<FreezeVideoEffectDTO> freezesOf(const std::vector<VideoEditEffectDTO>& effects) {
  std::vector<FreezeVideoEffectDTO> freezes;
  for (const VideoEditEffectDTO& effect : effects)
    if (const auto* const freeze = effect.as<Kind::freeze>())
      freezes.push_back(*freeze);
  return freezes;
}

std::vector<CursorFollowPlan::ClipBound> clipBoundsOf(const std::vector<ClipSpan>& clips) {
  std::vector<CursorFollowPlan::ClipBound> bounds;
  bounds.reserve(clips.size());
  std::int64_t start = 0;
  for (const ClipSpan& clip : clips) {
    bounds.push_back({start, start + clip.outputDurationMs()});
    start = bounds.back().end;
  }
  return bounds;
}

// Of stretches in order of time, that which holds the moment; null when none does.
template<class Stretch> const Stretch* stretchAt(const std::vector<Stretch>& stretches, std::int64_t atMs) {
  const auto found = std::partition_point(stretches.begin(), stretches.end(),
                                          [atMs](const Stretch& it) { return it.end <= atMs; });
  return found == stretches.end() || atMs < found->start ? nullptr : &*found;
}

VideoZoomTransform between(const Sample& a, const Sample& b, std::int64_t atMs) {
  if (a.time == b.time)
    return a.transform;
  const double share = static_cast<double>(atMs - a.time) / static_cast<double>(b.time - a.time);
  const auto mixed = [share](double from, double to) { return from + (to - from) * share; };
  return {mixed(a.transform.scale, b.transform.scale), mixed(a.transform.x, b.transform.x),
          mixed(a.transform.y, b.transform.y)};
}

// A span has samples at its start and at its end, so that there is one on either side.
VideoZoomTransform transformOn(const Span& span, std::int64_t atMs) {
  const auto next = std::upper_bound(span.samples.begin(), span.samples.end(), atMs,
                                     [](std::int64_t time, const Sample& it) { return time < it.time; });
  return between(*std::prev(next), *next, atMs);
}

} // namespace

CursorFollowPlan::CursorFollowPlan(const std::vector<ClipSpan>& clips,
                                   const std::vector<VideoEditEffectDTO>& effects,
                                   const NormalizedVideoCropDTO& crop,
                                   const std::vector<InteractionCursorSample>& pointer) {
  const std::vector<const ZoomVideoEffectDTO*> zooms = followingZooms(effects);
  if (zooms.empty())
    return;
  clipBounds_ = clipBoundsOf(clips);
  freezes_ = freezesOf(effects);
  const std::vector<FreezeChange> changes = freezeChanges(freezes_);
  for (const ZoomVideoEffectDTO* zoom : zooms) {
    std::vector<Span> spans = CursorFollowPath(*zoom, crop, pointer, changes).spans(clipBounds_);
    if (!spans.empty())
      paths_[zoom->id] = std::move(spans);
  }
}

VideoZoomTransform CursorFollowPlan::transform(const ZoomVideoEffectDTO* zoom, std::int64_t atMs) const {
  if (zoom == nullptr)
    return {};
  const auto path = paths_.find(zoom->id);
  const Span* const span = path == paths_.end() ? nullptr : stretchAt(path->second, atMs);
  return span == nullptr ? fixedZoomTransform(*zoom, atMs) : transformOn(*span, atMs);
}

std::int64_t CursorFollowPlan::cameraTime(std::int64_t atMs) const {
  const auto holds = [atMs](const FreezeVideoEffectDTO& it) { return it.startMs <= atMs && atMs < it.endMs; };
  const auto freeze = std::find_if(freezes_.rbegin(), freezes_.rend(), holds);
  const ClipBound* const clip = stretchAt(clipBounds_, atMs);
  if (freeze == freezes_.rend() || clip == nullptr)
    return atMs;
  return std::max(freeze->startMs, clip->start);
}

} // namespace tessarin
