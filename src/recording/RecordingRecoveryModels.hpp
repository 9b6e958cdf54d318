#pragma once

#include "recording/RecordingProtocol.hpp"

#include <optional>
#include <string>
#include <vector>

// What a recovery is asked and what it answers. Plain values, any thread.
namespace tessarin {

struct ValidatedRecordingRecoveryRequest;

struct RecordingRecoveryRequestDTO {
  // A UUID; also the last component of the output directory. Required, and spelled in either way by hosts;
  // where there are both, the first one counts.
  std::optional<std::string> sessionID;
  std::optional<std::string> sessionIDInCapitals;
  std::string outputDirectory;           // absolute path of the session directory
  std::vector<std::string> segmentPaths; // in order; those that the host trusts
  std::optional<bool> recoverCamera;
  std::optional<bool> recoverSystemAudio;
  std::optional<bool> recoverMicrophone;
  std::optional<bool> recoverInteractions;

  static constexpr auto fields() {
    using DTO = RecordingRecoveryRequestDTO;
    return json::table(
        json::field("sessionId", &DTO::sessionID), json::field("sessionID", &DTO::sessionIDInCapitals),
        json::field("outputDirectory", &DTO::outputDirectory),
        json::field("segmentPaths", &DTO::segmentPaths), json::field("recoverCamera", &DTO::recoverCamera),
        json::field("recoverSystemAudio", &DTO::recoverSystemAudio),
        json::field("recoverMicrophone", &DTO::recoverMicrophone),
        json::field("recoverInteractions", &DTO::recoverInteractions));
  }

  // Checks the request by itself; touches nothing. Throws Failure<RecordingRecoveryError>, invalidRequest.
  ValidatedRecordingRecoveryRequest validated() const;

  bool operator==(const RecordingRecoveryRequestDTO&) const = default;
};

// A request that has passed its checks. All paths are absolute and inside the session directory; the optional
// ones are there when they are asked for.
struct ValidatedRecordingRecoveryRequest {
  std::string sessionID;
  std::string sessionPath;
  std::vector<std::string> segmentPaths;
  std::string outputPath;
  std::string screenOutputPath;
  std::optional<std::string> cameraOutputPath;
  std::optional<std::string> systemAudioOutputPath;
  std::optional<std::string> microphoneOutputPath;
  std::optional<std::string> interactionEventsPath;

  bool operator==(const ValidatedRecordingRecoveryRequest&) const = default;
};

struct RecordingRecoveryPayload {
  CaptureSessionClock clock; // without what only the live session knew
  std::vector<CaptureTrackPayload> tracks;
  std::vector<CaptureDeliverablePayload> deliverables;

  static constexpr auto fields() {
    using Payload = RecordingRecoveryPayload;
    return json::table(json::field("clock", &Payload::clock), json::field("tracks", &Payload::tracks),
                       json::field("deliverables", &Payload::deliverables));
  }
  bool operator==(const RecordingRecoveryPayload&) const = default;
};

} // namespace tessarin
