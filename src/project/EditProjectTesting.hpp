#pragma once

#include "project/VideoEditExportRequest.hpp"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// A project of an hour's recording that passes every check, and pieces to change it with, for tests.
namespace tessarin::editTesting {

inline const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
inline const std::string session = "/rec/" + sessionID;
inline const std::string sourcePath = session + "/recording.mp4";
inline const std::string cameraPath = session + "/camera.mp4";
inline const std::string interactionPath = session + "/interaction-events.jsonl";
inline const std::string outputPath = session + "/exports/edit.mp4";
inline constexpr NormalizedVideoRectDTO someRect{0.1, 0.2, 0.3, 0.4};

inline VideoEditClipDTO clip(std::string id, std::int64_t startMs, std::int64_t endMs, double rate = 1) {
  return {std::move(id), startMs, endMs, rate, 1.0, {}};
}

// 1920 x 1080, an hour, with a track of the computer's sound and one of the microphone; one clip of all of
// it.
inline VideoEditProjectDTO plainProject() {
  VideoEditProjectDTO project;
  project.schemaVersion = 2;
  project.revision = 7;
  project.source = {sessionID,    sourcePath,
                    3'600'000,    1920,
                    1080,         {{0, VideoEditAudioRole::system}, {1, VideoEditAudioRole::microphone}},
                    std::nullopt, std::nullopt};
  project.clips = {clip("a", 0, 3'600'000)};
  project.crop = {0, 0, 1, 1};
  return project;
}

inline VideoCameraLayerDTO cameraLayer() {
  return {true, {0.7, 0.7, 0.2, 0.2}, VideoCameraShapeDTO::rounded, {}, {}, {}};
}

// The same with a camera of the same length.
inline VideoEditProjectDTO cameraProject() {
  VideoEditProjectDTO project = plainProject();
  project.source.camera = {{cameraPath, 3'600'000, 640, 480}};
  project.camera = cameraLayer();
  return project;
}

// The whole picture, as it is, by the preset original.
inline VideoOutputVersionDTO version(std::string id) {
  VideoOutputVersionDTO version;
  version.id = std::move(id);
  version.name = "Original";
  version.canvas.preset = VideoCanvasPresetDTO::original;
  version.canvas.widthPixels = 1920;
  version.canvas.heightPixels = 1080;
  version.canvas.manualScale = 1;
  version.canvas.background = {VideoCanvasBackgroundKindDTO::solid, "#000000", "#ffffffff", 0};
  return version;
}

inline VideoEditProjectDTO versionsProject() {
  VideoEditProjectDTO project = plainProject();
  project.outputVersions = {version("v1"), version("v2")};
  project.activeOutputID = "v1";
  return project;
}

using Kind = VideoEditEffectKind;

inline ZoomVideoEffectDTO zoom() {
  return {std::nullopt, Kind::zoom, "zoom", 1000, 3000, {0.5, 0.5}, 2.0};
}
inline RedactionVideoEffectDTO redaction() {
  return {Kind::redaction, "redaction", 1000, 3000, VideoRedactionMode::blur, someRect, 20, "#000000", {}};
}
inline TextVideoEffectDTO text() {
  return {Kind::text, "text", 1000, 3000, someRect, "A text", "#ffffff", "#00000080", 0.05, {}, {}};
}
inline ArrowVideoEffectDTO arrow() {
  return {Kind::arrow, "arrow", 1000, 3000, {0.1, 0.1}, {0.5, 0.5}, "#ff0000", 0.01};
}
inline ShapeVideoEffectDTO shape(Kind kind = Kind::rectangle) {
  return {kind, std::string(json::nameOf(kind)), 1000, 3000, someRect, "#ff0000", "#00ff0000", 0.01};
}
inline HighlightVideoEffectDTO highlight() {
  return {Kind::highlight, "highlight", 1000, 3000, someRect, "#ffff00", 0.5};
}
inline NumberVideoEffectDTO number() {
  return {Kind::number, "number", 1000, 3000, {0.5, 0.5}, 1, "#0000ff"};
}
inline FreezeVideoEffectDTO freeze() {
  return {Kind::freeze, "freeze", 1000, 3000, 500};
}
inline InteractionVideoEffectDTO interaction() {
  InteractionVideoEffectDTO effect;
  effect.id = "interaction";
  effect.startMs = 0;
  effect.endMs = 10'000;
  effect.sourcePath = interactionPath;
  effect.visible = true;
  effect.cursorVisible = true;
  effect.cursorColor = "#000000";
  effect.clickColor = "#ff0000";
  effect.dwellThresholdMs = 800;
  return effect;
}

// As an effect of the kind that the record's own field says.
template<Kind K> VideoEditEffectDTO effect(VideoEditEffectDTO::RecordOf<K> record) {
  return VideoEditEffectDTO::make<K>(std::move(record));
}

// One of each kind, in the order of kinds.
inline std::vector<VideoEditEffectDTO> everyEffect() {
  return {effect<Kind::zoom>(zoom()),           effect<Kind::redaction>(redaction()),
          effect<Kind::text>(text()),           effect<Kind::arrow>(arrow()),
          effect<Kind::rectangle>(shape()),     effect<Kind::ellipse>(shape(Kind::ellipse)),
          effect<Kind::highlight>(highlight()), effect<Kind::number>(number()),
          effect<Kind::freeze>(freeze()),       effect<Kind::interaction>(interaction())};
}

inline VideoEditExportRequestDTO request(VideoEditProjectDTO project = plainProject()) {
  return {sessionID, std::move(project), outputPath};
}

} // namespace tessarin::editTesting
