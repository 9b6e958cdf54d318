#pragma once

#include "base/Json.hpp"
#include "project/VideoCameraLayer.hpp"

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessarin {

// Where the camera's picture was over a recording, as a file of its session, so that an edit can put it
// there again. Plain value.
struct RecordedCameraLayout {
  static constexpr std::int64_t currentSchemaVersion = 1; // not that of the control protocol
  static constexpr const char* fileName = "camera-layout.json";
  static constexpr std::size_t maximumPositions = 8192;
  static constexpr std::size_t maximumBytes = 0x400000;

  std::int64_t schemaVersion = currentSchemaVersion;
  std::string sessionID;
  VideoCameraLayerDTO camera; // fractions of the capture; times are active milliseconds

  static constexpr auto fields() {
    using Layout = RecordedCameraLayout;
    return json::table(json::field("schemaVersion", &Layout::schemaVersion),
                       json::field("sessionId", &Layout::sessionID), json::field("camera", &Layout::camera));
  }
  bool operator==(const RecordedCameraLayout&) const = default;
};

} // namespace tessarin
