#include "backends/x11/StreamTicks.hpp"

#include <algorithm>
#include <cstdlib>

namespace tessarin::x11 {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
// Changes count as regular when they keep to their phase this closely, this many times in a row.
constexpr std::int64_t phaseTolerance = 2'000'000;
constexpr int regularChangesNeeded = 6;
// Closer to the changes than this is too close, and this is a safe distance behind them.
constexpr std::int64_t guardDistance = 3'000'000;
constexpr std::int64_t safeDistance = 5'000'000;

__extension__ using Wide = __int128;

std::int64_t roundedDivision(Wide dividend, std::int64_t divisor) {
  return static_cast<std::int64_t>((dividend + divisor / 2) / divisor);
}

} // namespace

StreamTicks::StreamTicks(std::int64_t start, MediaTime interval)
    : start_(start), interval_(interval),
      period_(roundedDivision(static_cast<Wide>(interval.value()) * nanosecondsPerSecond,
                              interval.timescale())) {}

std::int64_t StreamTicks::time(std::int64_t tick) const {
  const auto offset = static_cast<Wide>(tick) * interval_.value() * nanosecondsPerSecond;
  return start_ + roundedDivision(offset, interval_.timescale());
}

std::int64_t StreamTicks::tickAt(std::int64_t now) const {
  const auto elapsed = static_cast<Wide>(now - offset_ - start_);
  if (elapsed < 0) {
    return 0;
  }
  auto tick = static_cast<std::int64_t>(elapsed * interval_.timescale() /
                                        (static_cast<Wide>(interval_.value()) * nanosecondsPerSecond));
  if (sampleTime(tick + 1) <= now) { // the nominal times are rounded
    ++tick;
  }
  return tick;
}

// The difference of two phases, within half an interval to either side.
std::int64_t StreamTicks::circular(std::int64_t difference) const {
  auto result = difference % period_;
  if (result > period_ / 2) {
    result -= period_;
  } else if (result < -period_ / 2) {
    result += period_;
  }
  return result;
}

void StreamTicks::contentChanged(std::int64_t when) {
  const auto phase = circular(when - time(tickAt(when)));
  const auto drift = circular(phase - phase_);
  if (std::abs(drift) > phaseTolerance) {
    phase_ = phase;
    regularChanges_ = 1;
    return;
  }
  phase_ = circular(phase_ + drift / 4);
  ++regularChanges_;
  if (regularChanges_ >= regularChangesNeeded && std::abs(circular(phase_ - offset_)) < guardDistance) {
    offset_ = circular(phase_ + std::min(safeDistance, period_ / 2));
    regularChanges_ = 0;
  }
}

} // namespace tessarin::x11
