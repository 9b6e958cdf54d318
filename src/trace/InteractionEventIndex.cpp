#include "trace/InteractionEventIndex.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tessarin {

namespace {

// Ages in milliseconds from which on a sample no longer shows.
constexpr std::int64_t cursorAgeLimit = 751;
constexpr std::int64_t clickAgeLimit = 650;
constexpr std::int64_t shortcutAgeLimit = 1500;
constexpr double dwellRadius = 0.006;

// At the end of the range where the difference lies beyond it.
std::int64_t difference(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (!__builtin_sub_overflow(a, b, &result))
    return result;
  return b < 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
}

template<class Event> NormalizedVideoPointDTO topLeftPoint(const Event& event) {
  const bool countsUpwards = !event.coordinateSpace;
  return {event.x, countsUpwards ? 1 - event.y : event.y};
}

template<class Sample> std::vector<std::int64_t> timesOf(const std::vector<Sample>& samples) {
  std::vector<std::int64_t> times;
  times.reserve(samples.size());
  for (const Sample& sample : samples)
    times.push_back(sample.timestampMs);
  return times;
}

template<class Sample>
std::optional<Sample> shown(const std::vector<Sample>& samples, std::optional<std::size_t> last,
                            std::int64_t atMs, std::int64_t ageLimit) {
  if (!last || difference(atMs, samples[*last].timestampMs) >= ageLimit)
    return std::nullopt;
  return samples[*last];
}

} // namespace

InteractionEventIndex::InteractionEventIndex(const std::vector<InteractionEventDTO>& events) {
  for (const InteractionEventDTO& each : events) {
    if (const auto* cursor = std::get_if<InteractionCursorEvent>(&each.event))
      cursors_.push_back({cursor->timestampMs, topLeftPoint(*cursor), cursor->cursorRendering});
    else if (const auto* click = std::get_if<InteractionClickEvent>(&each.event))
      clicks_.push_back({click->timestampMs, topLeftPoint(*click), click->button});
    else if (const auto* shortcut = std::get_if<InteractionShortcutEvent>(&each.event))
      shortcuts_.push_back({shortcut->timestampMs, shortcut->keys});
  }
  cursorTimes_ = timesOf(cursors_);
  clickTimes_ = timesOf(clicks_);
  shortcutTimes_ = timesOf(shortcuts_);
}

std::optional<std::size_t> InteractionEventIndex::lastIndex(std::int64_t atOrBefore,
                                                            std::span<const std::int64_t> times) {
  const auto later = std::upper_bound(times.begin(), times.end(), atOrBefore);
  if (later == times.begin())
    return std::nullopt;
  return static_cast<std::size_t>(later - times.begin()) - 1;
}

InteractionOverlayState InteractionEventIndex::state(std::int64_t atMs, std::int64_t dwellThresholdMs) const {
  const std::optional<std::size_t> cursor = lastIndex(atMs, cursorTimes_);
  InteractionOverlayState state;
  state.cursor = shown(cursors_, cursor, atMs, cursorAgeLimit);
  state.click = shown(clicks_, lastIndex(atMs, clickTimes_), atMs, clickAgeLimit);
  state.dwelling = isDwelling(cursor, difference(atMs, dwellThresholdMs));
  state.shortcut = shown(shortcuts_, lastIndex(atMs, shortcutTimes_), atMs, shortcutAgeLimit);
  return state;
}

// Walks back from the last sample, shown or not, to one that is old enough, as long as none lies elsewhere.
bool InteractionEventIndex::isDwelling(std::optional<std::size_t> last, std::int64_t sinceMs) const {
  if (!last)
    return false;
  const NormalizedVideoPointDTO base = cursors_[*last].point;
  for (std::size_t count = *last + 1; count > 0; --count) {
    const InteractionCursorSample& sample = cursors_[count - 1];
    if (std::hypot(sample.point.x - base.x, sample.point.y - base.y) > dwellRadius)
      return false;
    if (sample.timestampMs <= sinceMs)
      return true;
  }
  return false;
}

} // namespace tessarin
