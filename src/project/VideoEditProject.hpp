#pragma once

#include "base/Json.hpp"
#include "model/ClipSpan.hpp"
#include "model/RecordingCodec.hpp"
#include "project/VideoCameraLayer.hpp"
#include "project/VideoEditEffect.hpp"
#include "project/VideoOutputVersion.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The edit of a recording as the host keeps it and sends it whole with every operation. Plain values;
// decoding repairs nothing, and bounds are the validators' business. Times are milliseconds.
namespace tessarin {

enum class VideoEditAudioRole : std::uint8_t { system, microphone, mixed };
constexpr auto jsonNames(VideoEditAudioRole) {
  return json::names<VideoEditAudioRole>({{VideoEditAudioRole::system, "system"},
                                          {VideoEditAudioRole::microphone, "microphone"},
                                          {VideoEditAudioRole::mixed, "mixed"}});
}

struct VideoEditAudioTrackDTO {
  std::int64_t sourceTrackIndex = 0; // among the file's sound tracks
  VideoEditAudioRole role = VideoEditAudioRole::system;

  static constexpr auto fields() {
    return json::table(json::field("sourceTrackIndex", &VideoEditAudioTrackDTO::sourceTrackIndex),
                       json::field("role", &VideoEditAudioTrackDTO::role));
  }
  bool operator==(const VideoEditAudioTrackDTO&) const = default;
};

// The camera's file beside the recording.
struct VideoCameraSourceDTO {
  std::string path;
  std::int64_t durationMs = 0;
  std::int64_t widthPixels = 0;
  std::int64_t heightPixels = 0;

  static constexpr auto fields() {
    using DTO = VideoCameraSourceDTO;
    return json::table(json::field("path", &DTO::path), json::field("durationMs", &DTO::durationMs),
                       json::field("widthPixels", &DTO::widthPixels),
                       json::field("heightPixels", &DTO::heightPixels));
  }
  bool operator==(const VideoCameraSourceDTO&) const = default;
};

struct VideoEditSourceDTO {
  std::string sessionID; // a UUID
  std::string path;      // of the recording; absolute
  std::int64_t durationMs = 0;
  std::int64_t widthPixels = 0; // as shown
  std::int64_t heightPixels = 0;
  std::vector<VideoEditAudioTrackDTO> audioTracks;
  std::optional<VideoCameraSourceDTO> camera;
  std::optional<RecordingCodec> codec;

  static constexpr auto fields() {
    using DTO = VideoEditSourceDTO;
    return json::table(
        json::field("sessionId", &DTO::sessionID), json::field("path", &DTO::path),
        json::field("durationMs", &DTO::durationMs), json::field("widthPixels", &DTO::widthPixels),
        json::field("heightPixels", &DTO::heightPixels), json::field("audioTracks", &DTO::audioTracks),
        json::field("camera", &DTO::camera), json::field("codec", &DTO::codec));
  }
  bool operator==(const VideoEditSourceDTO&) const = default;
};

// A stretch of the recording that stays.
struct VideoEditClipDTO {
  std::string id;
  std::int64_t sourceStartMs = 0;
  std::int64_t sourceEndMs = 0; // exclusive
  double rate = 1;              // 2 plays twice as fast
  double volume = 1;            // linear, of all its sound
  std::vector<VideoEditAudioRole> mutedRoles;

  static constexpr auto fields() {
    using DTO = VideoEditClipDTO;
    return json::table(json::field("id", &DTO::id), json::field("sourceStartMs", &DTO::sourceStartMs),
                       json::field("sourceEndMs", &DTO::sourceEndMs), json::field("rate", &DTO::rate),
                       json::field("volume", &DTO::volume), json::field("mutedRoles", &DTO::mutedRoles));
  }

  ClipSpan span() const { return {sourceStartMs, sourceEndMs, rate}; }

  bool operator==(const VideoEditClipDTO&) const = default;
};

// The part of the recording's picture that is kept.
struct NormalizedVideoCropDTO {
  double x = 0;
  double y = 0;
  double width = 1;
  double height = 1;

  static constexpr auto fields() {
    using DTO = NormalizedVideoCropDTO;
    return json::table(json::field("x", &DTO::x), json::field("y", &DTO::y),
                       json::field("width", &DTO::width), json::field("height", &DTO::height));
  }
  bool operator==(const NormalizedVideoCropDTO&) const = default;
};

struct NarrationAudioSettingsDTO {
  double strength = 0;

  static constexpr auto fields() {
    return json::table(json::field("strength", &NarrationAudioSettingsDTO::strength));
  }
  bool operator==(const NarrationAudioSettingsDTO&) const = default;
};

struct VideoEditProjectDTO {
  std::int64_t schemaVersion = 2;
  std::int64_t revision = 0; // counted by the host
  VideoEditSourceDTO source;
  std::vector<VideoEditClipDTO> clips; // in the order of the source
  NormalizedVideoCropDTO crop;
  std::optional<VideoCameraLayerDTO> camera;
  std::vector<VideoEditEffectDTO> overlays;
  std::optional<std::int64_t> coverFrameMs; // in the output
  std::optional<std::vector<VideoOutputVersionDTO>> outputVersions;
  std::optional<std::string> activeOutputID;
  std::optional<NarrationAudioSettingsDTO> narrationAudio; // set: the microphone is cleaned first

  static constexpr auto fields() {
    using DTO = VideoEditProjectDTO;
    return json::table(json::field("schemaVersion", &DTO::schemaVersion),
                       json::field("revision", &DTO::revision), json::field("source", &DTO::source),
                       json::field("clips", &DTO::clips), json::field("crop", &DTO::crop),
                       json::field("camera", &DTO::camera), json::field("overlays", &DTO::overlays),
                       json::field("coverFrameMs", &DTO::coverFrameMs),
                       json::field("outputVersions", &DTO::outputVersions),
                       json::field("activeOutputId", &DTO::activeOutputID),
                       json::field("narrationAudio", &DTO::narrationAudio));
  }

  // All of these are pure, on any thread. Pointers live as long as the project is left as it is.

  // The version that the active id names; null when there is none.
  const VideoOutputVersionDTO* activeOutput() const;
  // The camera's layer that counts: the active version's own, else the project's; null when there is neither.
  const VideoCameraLayerDTO* cameraInForce() const;
  // Whether the active version shows anything but the cropped picture as it is. Of its canvas, manualScale,
  // background, preset and safeArea take no part.
  bool activeOutputChangesFrame() const;
  // The overlays as the active version sees them: captions stand where its caption style puts them.
  std::vector<VideoEditEffectDTO> outputEffects() const;
  // The clips as spans, for what maps times of the source to the output.
  std::vector<ClipSpan> clipSpans() const;

  // The size of the cropped picture, by evenFloor().
  std::int64_t croppedWidthPixels() const;
  std::int64_t croppedHeightPixels() const;

  // A number of pixels: the value rounded down to an even number, at least 2.
  static std::int64_t evenFloor(double value);

  // Checks everything about the project that needs no look at a file. Throws Failure<VideoEditExportError>:
  // invalidProject, or invalidCrop for the crop.
  void validate(const std::string& sessionID, const std::string& sourcePath) const;

  bool operator==(const VideoEditProjectDTO&) const = default;

 private:
  void validateOutputs() const;
};

} // namespace tessarin
