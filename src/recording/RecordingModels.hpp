#pragma once

#include "base/Json.hpp"
#include "model/Errors.hpp"
#include "model/Geometry.hpp"
#include "model/RecordingCodec.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What a recording is asked to be. Plain values, any thread. Field tables stand in decoding order, so the
// first key in them that fails decides; struct members stand in the order in which hosts read of them.
namespace tessarin {

enum class RecordingQuality : std::uint8_t { standard, high };
constexpr auto jsonNames(RecordingQuality) {
  return json::names<RecordingQuality>(
      {{RecordingQuality::standard, "standard"}, {RecordingQuality::high, "high"}});
}

enum class RecordingOutputScale : std::uint8_t { original, hd1080, hd720 };
constexpr auto jsonNames(RecordingOutputScale) {
  return json::names<RecordingOutputScale>({{RecordingOutputScale::original, "original"},
                                            {RecordingOutputScale::hd1080, "1080p"},
                                            {RecordingOutputScale::hd720, "720p"}});
}

enum class CameraPosition : std::uint8_t { topLeft, topRight, bottomLeft, bottomRight };
constexpr auto jsonNames(CameraPosition) {
  return json::names<CameraPosition>({{CameraPosition::topLeft, "topLeft"},
                                      {CameraPosition::topRight, "topRight"},
                                      {CameraPosition::bottomLeft, "bottomLeft"},
                                      {CameraPosition::bottomRight, "bottomRight"}});
}

enum class RecordingCursorStyle : std::uint8_t { system, light, dark };
constexpr auto jsonNames(RecordingCursorStyle) {
  return json::names<RecordingCursorStyle>({{RecordingCursorStyle::system, "system"},
                                            {RecordingCursorStyle::light, "light"},
                                            {RecordingCursorStyle::dark, "dark"}});
}

enum class RecordingPhase : std::uint8_t {
  idle,
  starting,
  recording,
  pausing,
  paused,
  resuming,
  stopping,
  completed,
  cancelling,
  failed
};
constexpr auto jsonNames(RecordingPhase) {
  using enum RecordingPhase;
  return json::names<RecordingPhase>({{idle, "idle"},
                                      {starting, "starting"},
                                      {recording, "recording"},
                                      {pausing, "pausing"},
                                      {paused, "paused"},
                                      {resuming, "resuming"},
                                      {stopping, "stopping"},
                                      {completed, "completed"},
                                      {cancelling, "cancelling"},
                                      {failed, "failed"}});
}

// A place on a grid of 0 to 10000 in both directions, both ends inclusive.
struct RecordingCameraPlacementDTO {
  std::int64_t x = 0;
  std::int64_t y = 0;

  static constexpr auto fields() {
    return json::table(json::field("x", &RecordingCameraPlacementDTO::x),
                       json::field("y", &RecordingCameraPlacementDTO::y));
  }
  bool operator==(const RecordingCameraPlacementDTO&) const = default;
};

struct RecordingPresentationDTO {
  std::optional<RecordingCameraPlacementDTO> cameraPlacement;
  RecordingCursorStyle cursorStyle = RecordingCursorStyle::system;
  std::int64_t cursorScale = 100; // percent: 100, 150 or 200
  bool cameraBorder = false;

  static constexpr auto fields() {
    using DTO = RecordingPresentationDTO;
    return json::table(
        json::field("cameraPlacement", &DTO::cameraPlacement), json::field("cursorStyle", &DTO::cursorStyle),
        json::field("cursorScale", &DTO::cursorScale), json::field("cameraBorder", &DTO::cameraBorder));
  }
  bool operator==(const RecordingPresentationDTO&) const = default;
};

struct RecordingSettingsDTO {
  std::optional<RecordingPresentationDTO> presentation;
  bool microphone = false;
  std::optional<std::string> microphoneDeviceID; // absent: the default device
  bool systemAudio = false;
  bool camera = false;
  std::optional<std::string> cameraDeviceID; // absent: the default device
  std::optional<bool> cameraPreviewMirrored;
  std::optional<bool> cameraOutputMirrored;
  CameraPosition cameraPosition = CameraPosition::bottomRight;
  std::optional<bool> cursorFollow; // a zoom that follows the pointer is wanted later, so it must be traced
  bool showsCursor = false;
  bool showMouseClicks = false;
  std::optional<bool> recordKeyboardShortcuts;
  std::int64_t frameRate = 30; // frames per second: 15, 30 or 60
  RecordingQuality quality = RecordingQuality::standard;
  RecordingOutputScale outputScale = RecordingOutputScale::original;
  std::optional<RecordingCodec> codec;

  static constexpr auto fields() {
    using DTO = RecordingSettingsDTO;
    return json::table(
        json::field("presentation", &DTO::presentation), json::field("microphone", &DTO::microphone),
        json::field("systemAudio", &DTO::systemAudio), json::field("camera", &DTO::camera),
        json::field("microphoneDeviceId", &DTO::microphoneDeviceID),
        json::field("cameraDeviceId", &DTO::cameraDeviceID),
        json::field("cameraPreviewMirrored", &DTO::cameraPreviewMirrored),
        json::field("cameraOutputMirrored", &DTO::cameraOutputMirrored),
        json::field("cameraPosition", &DTO::cameraPosition), json::field("showsCursor", &DTO::showsCursor),
        json::field("showMouseClicks", &DTO::showMouseClicks),
        json::field("recordKeyboardShortcuts", &DTO::recordKeyboardShortcuts),
        json::field("cursorFollow", &DTO::cursorFollow), json::field("frameRate", &DTO::frameRate),
        json::field("quality", &DTO::quality), json::field("outputScale", &DTO::outputScale),
        json::field("codec", &DTO::codec));
  }

  RecordingCodec effectiveCodec() const { return codec.value_or(RecordingCodec::h264); }
  bool recordsCursorEvents() const { return showsCursor || cursorFollow.value_or(false); }
  bool recordsClickEvents() const { return showMouseClicks || cursorFollow.value_or(false); }
  // An interaction trace exists only when this is true.
  bool recordsInteractionEvents() const {
    return showsCursor || cursorFollow.value_or(false) || showMouseClicks ||
           recordKeyboardShortcuts.value_or(false);
  }

  bool operator==(const RecordingSettingsDTO&) const = default;
};

// Whether the path can name the directory of that session: absolute, without "..", and the session its last
// component to the letter. Touches nothing.
bool isSessionDirectory(const std::string& path, const std::string& sessionID);

struct ValidatedRecordingRequest;

struct RecordingRequestDTO {
  std::string sessionID; // a UUID; also the last component of the output directory
  CaptureKind kind = CaptureKind::display;
  std::string displayID;
  std::optional<std::string> windowID; // for a window
  RectDTO rectPoints;                  // the selection, global points
  std::string outputDirectory;         // absolute path of the session directory
  RecordingSettingsDTO settings;

  static constexpr auto fields() {
    using DTO = RecordingRequestDTO;
    return json::table(json::field("sessionId", &DTO::sessionID), json::field("kind", &DTO::kind),
                       json::field("displayId", &DTO::displayID), json::field("windowId", &DTO::windowID),
                       json::field("rectPoints", &DTO::rectPoints),
                       json::field("outputDirectory", &DTO::outputDirectory),
                       json::field("settings", &DTO::settings));
  }

  // Checks the request against the displays and windows of this moment; touches nothing. The first rule
  // that is broken is thrown as Failure<RecordingRequestError>.
  ValidatedRecordingRequest validated(const std::vector<DisplayInfoDTO>& displays,
                                      const std::vector<WindowInfoDTO>& windows) const;

  bool operator==(const RecordingRequestDTO&) const = default;
};

// A request that has passed its checks, with what it is about.
struct ValidatedRecordingRequest {
  RecordingRequestDTO request;
  DisplayInfoDTO display;
  std::optional<WindowInfoDTO> window; // for a window only
  RectDTO sourceRectPoints;            // points; relative to the window for a window, else to the display

  bool operator==(const ValidatedRecordingRequest&) const = default;
};

} // namespace tessarin
