#pragma once

#include "base/MediaTime.hpp"

#include <cstdint>
#include <optional>

namespace tessarin {

// The one clock of sample times, segment epochs, panels and health: monotonic, not stepped by changes of
// the wall clock, the same for every process of the machine. Handed in wherever it is read, so that tests
// turn it by hand. Any thread.
class HostClock {
 public:
  virtual ~HostClock() = default;

  // Nanoseconds on the monotonic clock, timescale 1,000,000,000.
  virtual MediaTime now() const = 0;
};

// The machine's CLOCK_MONOTONIC, on which PipeWire and the X server's input stamps count too.
class MonotonicHostClock final : public HostClock {
 public:
  MediaTime now() const override;
};

// A host time in nanoseconds; nothing when it is not numeric or negative.
std::optional<std::uint64_t> hostNanoseconds(MediaTime time);

} // namespace tessarin
