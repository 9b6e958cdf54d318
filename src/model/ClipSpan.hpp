#pragma once

#include <cmath>
#include <cstdint>

namespace tessarin {

// A stretch of a recording that an edit keeps, and the speed at which it plays. Milliseconds; conversions
// round to nearest, halves away from zero. The rate is finite and positive. Plain value.
struct ClipSpan {
  std::int64_t sourceStartMs = 0;
  std::int64_t sourceEndMs = 0; // the first millisecond that no longer belongs to it
  double rate = 1;              // 2 plays twice as fast

  // So much of the source takes how long in the output.
  std::int64_t outputMs(std::int64_t sourceMs) const {
    return std::llround(static_cast<double>(sourceMs) / rate);
  }
  std::int64_t outputDurationMs() const { return outputMs(sourceEndMs - sourceStartMs); }

  bool operator==(const ClipSpan&) const = default;
};

} // namespace tessarin
