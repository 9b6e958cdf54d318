#pragma once

#include "base/MediaTime.hpp"

#include <cstdint>

namespace tessarin::x11 {

// When a stream samples, and how it stamps what it sampled: tick k is the time start + k * interval, and what
// is sampled there has been to be seen since some moment of the interval before, so it is stamped with the
// middle of that. Stamps are then right on average, not late, which keeps pictures and sound together.
//
// The sampling moment may lie up to half an interval off its tick. Content that changes as regularly as the
// grid, and just around the sampling moment, would now be missed and now be taken twice by the least jitter;
// the sampling moment then steps to a safe distance behind the changes, while the stamps stay on the grid.
// All times are host times in nanoseconds. Plain value.
class StreamTicks {
 public:
  // The interval must be numeric and positive.
  StreamTicks(std::int64_t start, MediaTime interval);

  // The nominal time of a tick.
  std::int64_t time(std::int64_t tick) const;
  // The time that a tick's picture is given.
  std::int64_t stamp(std::int64_t tick) const { return time(tick) - period_ / 2; }
  // The moment at which a tick is sampled.
  std::int64_t sampleTime(std::int64_t tick) const { return time(tick) + offset_; }
  // The latest tick that may be sampled at this time; ticks before it are missed for good.
  std::int64_t tickAt(std::int64_t now) const;

  // The first change of the content since the last sample was seen at this time.
  void contentChanged(std::int64_t when);

 private:
  std::int64_t circular(std::int64_t difference) const;

  std::int64_t start_;
  MediaTime interval_;
  std::int64_t period_; // nanoseconds, rounded
  std::int64_t offset_ = 0;
  std::int64_t phase_ = 0; // where in the interval the content changes
  int regularChanges_ = 0;
};

} // namespace tessarin::x11
