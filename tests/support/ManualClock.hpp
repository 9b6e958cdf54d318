#pragma once

#include "base/HostClock.hpp"

#include <atomic>
#include <chrono>

namespace tessarin {

// A host clock that stands still until it is turned. Any thread.
class ManualClock final : public HostClock {
 public:
  using Duration = std::chrono::nanoseconds;

  explicit ManualClock(Duration start = Duration::zero()) : nanoseconds_(start.count()) {}

  MediaTime now() const override { return MediaTime::nanoseconds(nanoseconds_); }
  Duration elapsed() const { return Duration(nanoseconds_.load()); }

  // Timers of a ManualScheduler do not fire by this: they find themselves late at its next step.
  void set(Duration time) { nanoseconds_ = time.count(); }
  void advance(Duration by) { nanoseconds_ += by.count(); }

 private:
  std::atomic<std::int64_t> nanoseconds_;
};

} // namespace tessarin
