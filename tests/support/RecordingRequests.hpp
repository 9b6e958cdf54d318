#pragma once

#include "recording/RecordingModels.hpp"

#include <string>

// A valid recording request with the desktop that it fits, for tests to change one thing in.
namespace tessarin::testing {

inline const std::string sampleSessionID = "6f1c2d3e-4a5b-4c6d-8e7f-0a1b2c3d4e5f";

inline DisplayInfoDTO sampleDisplay() {
  return {"77", {100, 50, 1920, 1080}, 1, {1920, 1080}, true};
}

inline WindowInfoDTO sampleWindow() {
  return {"4194310", "77", 4242, "Editor", "notes", {300, 200, 640, 480}, 0, 0, true};
}

inline RecordingSettingsDTO sampleSettings() {
  RecordingSettingsDTO settings;
  settings.showsCursor = true;
  settings.frameRate = 30;
  settings.quality = RecordingQuality::standard;
  settings.outputScale = RecordingOutputScale::original;
  return settings;
}

// Of the whole sample display.
inline RecordingRequestDTO sampleRequest(CaptureKind kind = CaptureKind::display) {
  RecordingRequestDTO request;
  request.sessionID = sampleSessionID;
  request.kind = kind;
  request.displayID = sampleDisplay().id;
  request.rectPoints = sampleDisplay().framePoints;
  request.outputDirectory = "/tmp/recordings/" + sampleSessionID;
  request.settings = sampleSettings();
  if (kind == CaptureKind::window) {
    request.windowID = sampleWindow().id;
    request.rectPoints = sampleWindow().framePoints;
  }
  return request;
}

} // namespace tessarin::testing
