#pragma once

#include "base/MediaTime.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// What the live badge of a recording is to show from now on. Plain value.
struct RecordingShortcutUpdate {
  std::uint64_t revision = 0; // grows with each update; an older one never overrides a newer one
  std::optional<std::vector<std::string>> keys; // absent: the badge is to go
  std::optional<MediaTime> expiresAt;           // host time; there with the keys

  bool operator==(const RecordingShortcutUpdate&) const = default;
};

} // namespace tessarin
