#include "base/HostClock.hpp"

#include <ctime>

namespace tessarin {

MediaTime MonotonicHostClock::now() const {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return MediaTime::nanoseconds(std::int64_t{time.tv_sec} * MediaTime::nanosecondScale + time.tv_nsec);
}

std::optional<std::uint64_t> hostNanoseconds(MediaTime time) {
  const MediaTime converted = time.convertedTo(MediaTime::nanosecondScale);
  if (!converted.isNumeric() || converted.value() < 0)
    return std::nullopt;
  return static_cast<std::uint64_t>(converted.value());
}

} // namespace tessarin
