#pragma once

#include "base/Json.hpp"
#include "project/VideoEditProject.hpp"

#include <cstdint>
#include <optional>
#include <string>

// What an export is asked and what it answers. Plain values, any thread.
namespace tessarin {

struct ValidatedVideoEditExportRequest;

struct VideoEditExportRequestDTO {
  std::string sessionID; // a UUID; also the name of the session's directory
  VideoEditProjectDTO project;
  std::string outputPath; // in the session's "exports" directory

  static constexpr auto fields() {
    using DTO = VideoEditExportRequestDTO;
    return json::table(json::field("sessionId", &DTO::sessionID), json::field("project", &DTO::project),
                       json::field("outputPath", &DTO::outputPath));
  }

  // Checks paths and project; touches nothing. Throws Failure<VideoEditExportError>: invalidRequest for the
  // paths, and what the project's own check throws.
  ValidatedVideoEditExportRequest validated() const;

  bool operator==(const VideoEditExportRequestDTO&) const = default;
};

// A request that has passed its checks; only validated() makes one from scratch. The files are absolute paths
// in the session's directory.
struct ValidatedVideoEditExportRequest {
  VideoEditExportRequestDTO request;
  std::string sourceURL;
  std::optional<std::string> cameraURL;
  std::string outputURL;

  bool operator==(const ValidatedVideoEditExportRequest&) const = default;
};

struct VideoEditExportPayload {
  std::string outputPath;
  std::int64_t durationMs = 0;
  std::int64_t widthPixels = 0;
  std::int64_t heightPixels = 0;
  std::int64_t sizeBytes = 0;

  static constexpr auto fields() {
    using Payload = VideoEditExportPayload;
    return json::table(
        json::field("outputPath", &Payload::outputPath), json::field("durationMs", &Payload::durationMs),
        json::field("widthPixels", &Payload::widthPixels),
        json::field("heightPixels", &Payload::heightPixels), json::field("sizeBytes", &Payload::sizeBytes));
  }
  bool operator==(const VideoEditExportPayload&) const = default;
};

} // namespace tessarin
