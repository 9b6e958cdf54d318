#include "trace/InteractionEventTimeline.hpp"

#include <algorithm>
#include <cstdint>

namespace tessarin::InteractionEventTimeline {

std::vector<InteractionEventDTO> mapToOutput(const std::vector<InteractionEventDTO>& events,
                                             const std::vector<ClipSpan>& clips) {
  std::vector<InteractionEventDTO> mapped;
  std::int64_t clipStartMs = 0; // on the output's time line
  auto event = events.begin();
  for (const ClipSpan& clip : clips) {
    const std::int64_t durationMs = clip.outputDurationMs();
    while (event != events.end() && event->timestampMs() < clip.sourceStartMs)
      ++event;
    for (; event != events.end() && event->timestampMs() < clip.sourceEndMs; ++event) {
      const std::int64_t inClipMs = clip.outputMs(event->timestampMs() - clip.sourceStartMs);
      mapped.push_back(event->at(clipStartMs + std::min(durationMs - 1, inClipMs)));
    }
    clipStartMs += durationMs;
  }
  std::stable_sort(mapped.begin(), mapped.end(),
                   [](const auto& a, const auto& b) { return a.timestampMs() < b.timestampMs(); });
  return mapped;
}

} // namespace tessarin::InteractionEventTimeline
