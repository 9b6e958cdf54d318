#pragma once

#include "base/Json.hpp"

#include <cstdint>
#include <string>
#include <vector>

// What a waveform is asked for and what it is. Plain values, any thread.
namespace tessarin {

struct ValidatedAudioWaveformRequest;

struct AudioWaveformRequestDTO {
  std::string sessionID;        // a UUID; also the name of the source's directory
  std::string sourcePath;       // absolute, a file "recording.mp4"
  std::int64_t sampleCount = 0; // slices, 64 to 2048

  static constexpr auto fields() {
    using DTO = AudioWaveformRequestDTO;
    return json::table(json::field("sessionId", &DTO::sessionID), json::field("sourcePath", &DTO::sourcePath),
                       json::field("sampleCount", &DTO::sampleCount));
  }

  // Checks the request by itself; touches nothing. Throws Failure<AudioWaveformRequestError>.
  ValidatedAudioWaveformRequest validated() const;

  bool operator==(const AudioWaveformRequestDTO&) const = default;
};

// A request that has passed its checks.
struct ValidatedAudioWaveformRequest {
  std::string sourcePath;
  std::size_t sampleCount = 0;
};

struct AudioWaveformPayload {
  std::string sourcePath;
  std::int64_t sampleCount = 0;
  std::vector<double> amplitudes; // one a slice of equal length, 0 to 1

  static constexpr auto fields() {
    using Payload = AudioWaveformPayload;
    return json::table(json::field("sourcePath", &Payload::sourcePath),
                       json::field("sampleCount", &Payload::sampleCount),
                       json::field("amplitudes", &Payload::amplitudes));
  }
  bool operator==(const AudioWaveformPayload&) const = default;
};

} // namespace tessarin
