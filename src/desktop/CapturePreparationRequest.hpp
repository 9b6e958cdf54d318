#pragma once

#include "base/Json.hpp"

#include <cstdint>
#include <string>

namespace tessarin {

// The request of `prepare-capture`. Plain value.
struct CapturePreparationRequest {
  std::int64_t schemaVersion = 1;
  std::string sessionID; // a UUID; also the last component of the directory
  std::string directory;

  static constexpr auto fields() {
    return json::table(json::field("schemaVersion", &CapturePreparationRequest::schemaVersion),
                       json::field("sessionId", &CapturePreparationRequest::sessionID),
                       json::field("directory", &CapturePreparationRequest::directory));
  }
  bool operator==(const CapturePreparationRequest&) const = default;
};

} // namespace tessarin
