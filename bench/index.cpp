// tessarin-bench-index
//
// Asks the index of a trace as long as traces may be for its state at a hundred thousand times, in disorder
// as seeks have them and in order as an export has them. Prints nanoseconds a question, and what the three
// binary searches alone take that any answer needs:
//
//   scattered NS ordered NS searches NS

#include "trace/InteractionEventIndex.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

namespace {

using namespace tessarin;

constexpr std::int64_t eventCount = 400'000;
constexpr std::int64_t intervalMs = 33;
constexpr std::int64_t dwellThresholdMs = 800;
constexpr auto captureTopLeft = InteractionCoordinateSpace::captureTopLeft;

// A pointer that moves, and rests for a second now and then; a click each four seconds and a shortcut each
// six.
std::vector<InteractionEventDTO> longTrace() {
  std::vector<InteractionEventDTO> events;
  std::int64_t timeMs = 0;
  double x = 0.5;
  while (events.size() < eventCount) {
    timeMs += intervalMs;
    const bool isResting = timeMs / 1000 % 5 == 0;
    x = isResting ? x : static_cast<double>(timeMs % 9973) / 9973;
    events.push_back({InteractionCursorEvent{
        .timestampMs = timeMs, .x = x, .y = 0.5, .coordinateSpace = captureTopLeft, .cursorRendering = {}}});
    if (events.size() % 121 == 0)
      events.push_back({InteractionClickEvent{
          .timestampMs = timeMs, .x = x, .y = 0.5, .coordinateSpace = captureTopLeft}});
    if (events.size() % 182 == 0)
      events.push_back({InteractionShortcutEvent{.timestampMs = timeMs, .keys = {"Control", "C"}}});
  }
  events.resize(eventCount);
  return events;
}

template<class Question>
double nanosecondsEach(const std::vector<std::int64_t>& times, const Question& question) {
  std::uint64_t answers = 0; // used, so that no question is left out
  const auto start = std::chrono::steady_clock::now();
  for (const std::int64_t time : times)
    answers += question(time);
  const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
  if (answers == 0)
    std::puts("nothing was found");
  return elapsed.count() / static_cast<double>(times.size());
}

template<class Sample> std::vector<std::int64_t> timesOf(const std::vector<Sample>& samples) {
  std::vector<std::int64_t> times;
  times.reserve(samples.size());
  for (const Sample& sample : samples)
    times.push_back(sample.timestampMs);
  return times;
}

} // namespace

int main() {
  const InteractionEventIndex index(longTrace());
  const std::vector<std::int64_t> cursors = timesOf(index.cursors());
  const std::vector<std::int64_t> clicks = timesOf(index.clicks());
  const std::vector<std::int64_t> shortcuts = timesOf(index.shortcuts());

  std::vector<std::int64_t> times(100'000);
  std::mt19937_64 random(20);
  std::uniform_int_distribution<std::int64_t> anywhere(0, cursors.back());
  std::generate(times.begin(), times.end(), [&] { return anywhere(random); });

  const auto state = [&](std::int64_t time) {
    const InteractionOverlayState found = index.state(time, dwellThresholdMs);
    return std::uint64_t{found.cursor.has_value()} + std::uint64_t{found.dwelling};
  };
  const auto searches = [&](std::int64_t time) {
    return static_cast<std::uint64_t>(
        (std::upper_bound(cursors.begin(), cursors.end(), time) - cursors.begin()) +
        (std::upper_bound(clicks.begin(), clicks.end(), time) - clicks.begin()) +
        (std::upper_bound(shortcuts.begin(), shortcuts.end(), time) - shortcuts.begin()));
  };
  nanosecondsEach(times, state); // brings the memory in
  const double scattered = nanosecondsEach(times, state);
  const double alone = nanosecondsEach(times, searches);
  std::sort(times.begin(), times.end());
  std::printf("scattered %.0f ordered %.0f searches %.0f\n", scattered, nanosecondsEach(times, state), alone);
}
