#include "editing/CursorFollowPath.hpp"

#include "editing/PicturePlacement.hpp"
#include "project/VideoEffectPlan.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <optional>
#include <set>

namespace tessarin {

namespace {

constexpr std::int64_t sampleStepMs = 16;
constexpr double smoothingMs = 180;
constexpr std::int64_t freshnessMs = 750; // a pointer that was last seen earlier is not followed

// What of the viewport the pointer may move in without moving it.
constexpr double deadZoneFrom = 0.25;
constexpr double deadZoneTo = 0.75;

// The nearest middle of a viewport that does not reach beyond the content, at this scale.
double clampAxis(double focus, double scale) {
  const double half = 0.5 / scale;
  return std::max(half, std::min(focus, 1 - half));
}

// Where the middle is after so many milliseconds with the pointer at this place.
double movedAxis(double focus, double pointer, double scale, double elapsedMs) {
  const double share = 1 - std::exp(elapsedMs / -smoothingMs);
  const double seenAt = scale * (pointer - focus) + 0.5; // of the viewport
  const double target = focus + (seenAt - std::clamp(seenAt, deadZoneFrom, deadZoneTo)) / scale;
  return focus + share * (clampAxis(target, scale) - focus);
}

} // namespace

// Goes through all beginnings and ends once, since a project may list very many freezes.
std::vector<FreezeChange> freezeChanges(const std::vector<FreezeVideoEffectDTO>& freezes) {
  struct Bound {
    std::int64_t atMs;
    std::size_t freeze;
    bool isStart;
  };
  std::vector<Bound> bounds;
  bounds.reserve(2 * freezes.size());
  for (std::size_t freeze = 0; freeze < freezes.size(); ++freeze) {
    bounds.push_back({freezes[freeze].startMs, freeze, true});
    bounds.push_back({freezes[freeze].endMs, freeze, false});
  }
  std::sort(bounds.begin(), bounds.end(), [](const Bound& a, const Bound& b) {
    return a.atMs != b.atMs ? a.atMs < b.atMs : a.isStart && !b.isStart;
  });

  std::vector<FreezeChange> changes;
  changes.reserve(bounds.size());
  std::set<std::size_t> running;
  for (auto bound = bounds.begin(); bound != bounds.end();) {
    const std::int64_t atMs = bound->atMs;
    for (; bound != bounds.end() && bound->atMs == atMs; ++bound) {
      if (bound->isStart)
        running.insert(bound->freeze);
      else
        running.erase(bound->freeze);
    }
    changes.push_back({atMs, running.empty() ? nullptr : &freezes[*running.rbegin()]});
  }
  return changes;
}

std::vector<CursorFollowPlan::Span>
CursorFollowPath::spans(const std::vector<CursorFollowPlan::ClipBound>& clips) const {
  std::vector<CursorFollowPlan::Span> result;
  for (const CursorFollowPlan::ClipBound& clip : clips) {
    const std::int64_t start = std::max(zoom_.startMs, clip.start);
    const std::int64_t end = std::min(zoom_.endMs, clip.end);
    if (start < end)
      result.push_back(span(clip, start, end));
  }
  return result;
}

CursorFollowPlan::Span CursorFollowPath::span(const CursorFollowPlan::ClipBound& clip, std::int64_t start,
                                              std::int64_t end) const {
  CursorFollowPlan::Span result{start, end, {}};
  const std::vector<std::int64_t> times = sampleTimes(start, end);
  result.samples.reserve(times.size());
  NormalizedVideoPointDTO focus = startingFocus(clip, start);
  std::int64_t previous = start;
  for (const std::int64_t time : times) {
    const bool isFrozen = freezeAt(time) != nullptr;
    if (!isFrozen)
      focus = movedFocus(focus, clip, previous, time);
    // The picture is still, and so is what is shown of it, as it was before the freeze.
    const bool isHeld = isFrozen && !result.samples.empty();
    result.samples.push_back({time, isHeld ? result.samples.back().transform : transformAt(focus, time)});
    previous = time;
  }
  return result;
}

// Besides the steps, all moments at which the picture is frozen or no longer is.
std::vector<std::int64_t> CursorFollowPath::sampleTimes(std::int64_t start, std::int64_t end) const {
  const auto firstChange = std::partition_point(
      freezes_.begin(), freezes_.end(), [start](const FreezeChange& change) { return change.atMs <= start; });
  const auto behindChanges = std::partition_point(
      firstChange, freezes_.end(), [end](const FreezeChange& change) { return change.atMs < end; });
  std::vector<std::int64_t> times;
  times.reserve(static_cast<std::size_t>((end - start) / sampleStepMs) + 2 +
                static_cast<std::size_t>(behindChanges - firstChange));
  for (std::int64_t time = start; time < end; time += sampleStepMs)
    times.push_back(time);
  times.push_back(end);
  std::transform(firstChange, behindChanges, std::back_inserter(times),
                 [](const FreezeChange& change) { return change.atMs; });
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
  return times;
}

const FreezeVideoEffectDTO* CursorFollowPath::freezeAt(std::int64_t atMs) const {
  const auto later =
      std::upper_bound(freezes_.begin(), freezes_.end(), atMs,
                       [](std::int64_t time, const FreezeChange& change) { return time < change.atMs; });
  return later == freezes_.begin() ? nullptr : std::prev(later)->freeze;
}

// Where the pointer was seen last in this clip; nothing where that is beyond the crop.
std::optional<CursorFollowPath::SeenPointer>
CursorFollowPath::pointerAt(const CursorFollowPlan::ClipBound& clip, std::int64_t atMs) const {
  const auto later = std::upper_bound(
      pointer_.begin(), pointer_.end(), atMs,
      [](std::int64_t time, const InteractionCursorSample& sample) { return time < sample.timestampMs; });
  if (later == pointer_.begin() || std::prev(later)->timestampMs < clip.start)
    return std::nullopt;
  const InteractionCursorSample& last = *std::prev(later);
  const std::optional<NormalizedVideoPointDTO> point = pointInCrop(last.point, crop_);
  if (!point)
    return std::nullopt;
  return SeenPointer{last.timestampMs, *point};
}

// A zoom that runs over a cut finds the pointer at once, since the picture jumps there anyway.
NormalizedVideoPointDTO CursorFollowPath::startingFocus(const CursorFollowPlan::ClipBound& clip,
                                                        std::int64_t start) const {
  const auto pointer = clip.start > zoom_.startMs ? pointerAt(clip, start) : std::nullopt;
  const NormalizedVideoPointDTO& focus = pointer ? pointer->point : zoom_.center;
  return {clampAxis(focus.x, zoom_.scale), clampAxis(focus.y, zoom_.scale)};
}

// The whole scale counts also on the zoom's way in and out.
NormalizedVideoPointDTO CursorFollowPath::movedFocus(const NormalizedVideoPointDTO& focus,
                                                     const CursorFollowPlan::ClipBound& clip,
                                                     std::int64_t fromMs, std::int64_t atMs) const {
  const auto pointer = pointerAt(clip, atMs);
  if (!pointer || atMs - pointer->timeMs > freshnessMs)
    return focus;
  const auto elapsedMs = static_cast<double>(atMs - fromMs);
  return {movedAxis(focus.x, pointer->point.x, zoom_.scale, elapsedMs),
          movedAxis(focus.y, pointer->point.y, zoom_.scale, elapsedMs)};
}

VideoZoomTransform CursorFollowPath::transformAt(const NormalizedVideoPointDTO& focus,
                                                 std::int64_t atMs) const {
  const double scale = VideoEffectPlan::zoomScale(zoom_, atMs);
  return {scale, 0.5 - scale * clampAxis(focus.x, scale), 0.5 - scale * clampAxis(focus.y, scale)};
}

} // namespace tessarin
