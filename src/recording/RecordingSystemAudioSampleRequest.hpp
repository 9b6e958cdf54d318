#pragma once

#include "base/Json.hpp"

#include <string>

namespace tessarin {

// The request of `sample-recording-system-audio`. Plain value.
struct RecordingSystemAudioSampleRequestDTO {
  std::string displayID; // not empty

  static constexpr auto fields() {
    return json::table(json::field("displayId", &RecordingSystemAudioSampleRequestDTO::displayID));
  }
  bool operator==(const RecordingSystemAudioSampleRequestDTO&) const = default;
};

} // namespace tessarin
