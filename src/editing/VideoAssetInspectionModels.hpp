#pragma once

#include "project/VideoEditProject.hpp"

#include <cstdint>
#include <string>
#include <vector>

// What an editor asks of a recording before it opens it. Plain values, any thread.
namespace tessarin {

struct ValidatedVideoAssetInspectionRequest;

struct VideoAssetInspectionRequestDTO {
  std::string sessionID;            // a UUID; also the name of the source's directory
  std::string sourcePath;           // absolute, an MP4 file
  bool expectedSystemAudio = false; // what the recording was set to hold
  bool expectedMicrophone = false;

  static constexpr auto fields() {
    using DTO = VideoAssetInspectionRequestDTO;
    return json::table(json::field("sessionId", &DTO::sessionID), json::field("sourcePath", &DTO::sourcePath),
                       json::field("expectedSystemAudio", &DTO::expectedSystemAudio),
                       json::field("expectedMicrophone", &DTO::expectedMicrophone));
  }

  // Checks the request by itself; touches nothing. Throws Failure<VideoAssetInspectionRequestError>.
  ValidatedVideoAssetInspectionRequest validated() const;

  bool operator==(const VideoAssetInspectionRequestDTO&) const = default;
};

// A request that has passed its checks.
struct ValidatedVideoAssetInspectionRequest {
  VideoAssetInspectionRequestDTO request;
  std::string sourceURL; // an absolute path
};

struct VideoAssetInspectionPayload {
  std::string sourcePath;
  std::int64_t durationMs = 0;
  std::int64_t widthPixels = 0; // as shown
  std::int64_t heightPixels = 0;
  std::vector<VideoEditAudioTrackDTO> audioTracks;

  static constexpr auto fields() {
    using Payload = VideoAssetInspectionPayload;
    return json::table(json::field("sourcePath", &Payload::sourcePath),
                       json::field("durationMs", &Payload::durationMs),
                       json::field("widthPixels", &Payload::widthPixels),
                       json::field("heightPixels", &Payload::heightPixels),
                       json::field("audioTracks", &Payload::audioTracks));
  }
  bool operator==(const VideoAssetInspectionPayload&) const = default;
};

} // namespace tessarin
