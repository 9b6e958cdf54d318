#pragma once

#include "base/Json.hpp"

#include <cstdint>
#include <string>

namespace tessarin {

class FileSystem;

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

  // The session's directory, without slashes at its end: it exists, is no symbolic link, and nothing is in
  // it. Throws NativeServiceError outputFailed for the first rule that is broken, and FileFailure where the
  // directory cannot be looked at, as when it does not exist.
  std::string validatedDirectory(FileSystem& files) const;
};

} // namespace tessarin
