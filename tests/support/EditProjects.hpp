#pragma once

#include "project/VideoEditExportRequest.hpp"

#include <string>

namespace tessarin {

inline const std::string editSession = "0A6B3C1E-58E4-4BC0-9C5B-3E0B40B51E2F";

// A project of ten seconds of 640x360 with the computer's sound and a microphone, all of it kept as it is, in
// a session's directory below the root.
inline VideoEditExportRequestDTO editRequest(const std::string& root = "/recordings") {
  const std::string directory = root + "/" + editSession;
  VideoEditExportRequestDTO request{editSession, {}, directory + "/exports/edited.mp4"};
  request.project.source = {
      .sessionID = editSession,
      .path = directory + "/recording.mp4",
      .durationMs = 10'000,
      .widthPixels = 640,
      .heightPixels = 360,
      .audioTracks = {{0, VideoEditAudioRole::system}, {1, VideoEditAudioRole::microphone}},
      .camera = {},
      .codec = {}};
  request.project.clips.push_back(
      {.id = "clip-1", .sourceStartMs = 0, .sourceEndMs = 10'000, .rate = 1, .volume = 1, .mutedRoles = {}});
  return request;
}

// A layer in the right half of the picture.
inline VideoCameraLayerDTO editCameraLayer() {
  VideoCameraLayerDTO layer;
  layer.visible = true;
  layer.rect = {0.5, 0.5, 0.25, 0.25};
  return layer;
}

// The request with a camera of the recording's length beside it.
inline VideoEditExportRequestDTO editRequestWithCamera(const std::string& root = "/recordings") {
  VideoEditExportRequestDTO request = editRequest(root);
  request.project.source.camera = {{root + "/" + editSession + "/camera.mp4", 10'000, 320, 240}};
  request.project.camera = editCameraLayer();
  return request;
}

} // namespace tessarin
