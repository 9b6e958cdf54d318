#include "Fuzz.hpp"
#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"
#include "trace/InteractionEventFile.hpp"
#include "trace/InteractionEventIndex.hpp"
#include "trace/InteractionEventTimeline.hpp"

using namespace tessarin;

namespace {

using Events = std::vector<InteractionEventDTO>;

void requireOrder(const Events& events) {
  std::int64_t previousMs = 0;
  for (const InteractionEventDTO& event : events) {
    fuzz::require(InteractionEventFile::isValid(event), "an event is valid");
    fuzz::require(event.timestampMs() >= previousMs, "events are in order");
    previousMs = event.timestampMs();
  }
}

void requireRoundTrip(const Events& events) {
  std::string bytes;
  for (const InteractionEventDTO& event : events)
    bytes += json::encode(event) + '\n';
  fuzz::require(InteractionEventFile::parse(bytes) == events, "a trace reads back the same");
}

void requireIndex(const Events& events) {
  const InteractionEventIndex index(events);
  fuzz::require(index.cursors().size() + index.clicks().size() + index.shortcuts().size() == events.size(),
                "every event is indexed");
  for (const InteractionEventDTO& event : events) {
    const InteractionOverlayState state = index.state(event.timestampMs(), 400);
    fuzz::require(state.cursor || state.click || state.shortcut, "an event shows at its own time");
  }
}

void requireTimeline(const Events& events) {
  const std::vector<ClipSpan> clips = {{0, 1000, 2}, {1500, 4000, 0.5}, {3000, 5000, 1.5}};
  const Events mapped = InteractionEventTimeline::mapToOutput(events, clips);
  fuzz::require(mapped.size() <= events.size(), "no event is used twice");
  requireOrder(mapped);
  std::int64_t durationMs = 0;
  for (const ClipSpan& clip : clips)
    durationMs += clip.outputDurationMs();
  fuzz::require(mapped.empty() || mapped.back().timestampMs() < durationMs,
                "an event lies inside the output");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const Events events = InteractionEventFile::parse(fuzz::textOf(data, size));
    fuzz::require(events.size() <= InteractionEventFile::maximumEvents, "a trace keeps its bound");
    requireOrder(events);
    requireRoundTrip(events);
    requireIndex(events);
    requireTimeline(events);
  } catch (const Failure<VideoEditExportError>&) {
    // Refused, as most inputs are.
  }
  return 0;
}
