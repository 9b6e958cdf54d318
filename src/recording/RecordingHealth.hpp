#pragma once

#include "base/Json.hpp"

#include <cstdint>
#include <optional>

// Whether the sources of a recording deliver and whether its storage suffices. Plain values, any thread.
namespace tessarin {

enum class RecordingSourceHealth : std::uint8_t { healthy, quiet, stalled };
constexpr auto jsonNames(RecordingSourceHealth) {
  return json::names<RecordingSourceHealth>({{RecordingSourceHealth::healthy, "healthy"},
                                             {RecordingSourceHealth::quiet, "quiet"},
                                             {RecordingSourceHealth::stalled, "stalled"}});
}

enum class RecordingStorageHealth : std::uint8_t { healthy, low, critical, unknown };
constexpr auto jsonNames(RecordingStorageHealth) {
  return json::names<RecordingStorageHealth>({{RecordingStorageHealth::healthy, "healthy"},
                                              {RecordingStorageHealth::low, "low"},
                                              {RecordingStorageHealth::critical, "critical"},
                                              {RecordingStorageHealth::unknown, "unknown"}});
}

struct RecordingHealth {
  RecordingSourceHealth screen = RecordingSourceHealth::healthy;
  std::optional<RecordingSourceHealth> microphone; // present with such a lane
  std::optional<RecordingSourceHealth> systemAudio;
  std::optional<RecordingSourceHealth> camera;
  RecordingStorageHealth storage = RecordingStorageHealth::unknown;

  static constexpr auto fields() {
    return json::table(json::field("screen", &RecordingHealth::screen),
                       json::field("microphone", &RecordingHealth::microphone),
                       json::field("systemAudio", &RecordingHealth::systemAudio),
                       json::field("camera", &RecordingHealth::camera),
                       json::field("storage", &RecordingHealth::storage));
  }
  bool operator==(const RecordingHealth&) const = default;
};

namespace RecordingHealthPolicy {

// Judges the bytes free on the volume against those of the segments so far, leaving room for the merge at
// the stop, which writes about twice the segments' size again. Unknown when a figure is absent or negative.
RecordingStorageHealth storage(std::optional<std::int64_t> freeBytes, std::int64_t sourceBytes);

} // namespace RecordingHealthPolicy

} // namespace tessarin
