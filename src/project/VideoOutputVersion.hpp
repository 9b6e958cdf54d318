#pragma once

#include "base/Json.hpp"
#include "model/VideoGeometry.hpp"
#include "project/VideoCameraLayer.hpp"
#include "project/VideoLayerAnchor.hpp"

#include <cstdint>
#include <optional>
#include <string>

// The versions in which an edit can be put out: each a frame of its own with the recording's picture placed
// on it. Plain values; decoding repairs nothing, and bounds are the validators' business.
namespace tessarin {

// Which rule the host took the frame's size from.
enum class VideoCanvasPresetDTO : std::uint8_t {
  original,
  landscape16x9,
  portrait9x16,
  square,
  portrait4x5,
  custom
};
constexpr auto jsonNames(VideoCanvasPresetDTO) {
  return json::names<VideoCanvasPresetDTO>({{VideoCanvasPresetDTO::original, "original"},
                                            {VideoCanvasPresetDTO::landscape16x9, "landscape16x9"},
                                            {VideoCanvasPresetDTO::portrait9x16, "portrait9x16"},
                                            {VideoCanvasPresetDTO::square, "square"},
                                            {VideoCanvasPresetDTO::portrait4x5, "portrait4x5"},
                                            {VideoCanvasPresetDTO::custom, "custom"}});
}

enum class VideoCanvasContentModeDTO : std::uint8_t { fit, fill, manual };
constexpr auto jsonNames(VideoCanvasContentModeDTO) {
  return json::names<VideoCanvasContentModeDTO>({{VideoCanvasContentModeDTO::fit, "fit"},
                                                 {VideoCanvasContentModeDTO::fill, "fill"},
                                                 {VideoCanvasContentModeDTO::manual, "manual"}});
}

enum class VideoCanvasBackgroundKindDTO : std::uint8_t { solid, gradient, blur };
constexpr auto jsonNames(VideoCanvasBackgroundKindDTO) {
  return json::names<VideoCanvasBackgroundKindDTO>({{VideoCanvasBackgroundKindDTO::solid, "solid"},
                                                    {VideoCanvasBackgroundKindDTO::gradient, "gradient"},
                                                    {VideoCanvasBackgroundKindDTO::blur, "blur"}});
}

// The parts of a frame that players cover; only the host looks at it.
enum class VideoSafeAreaDTO : std::uint8_t { none, verticalVideo, squareSocial };
constexpr auto jsonNames(VideoSafeAreaDTO) {
  return json::names<VideoSafeAreaDTO>({{VideoSafeAreaDTO::none, "none"},
                                        {VideoSafeAreaDTO::verticalVideo, "verticalVideo"},
                                        {VideoSafeAreaDTO::squareSocial, "squareSocial"}});
}

// Colours are "#rrggbb" or "#rrggbbaa". Every kind carries all fields.
struct VideoCanvasBackgroundDTO {
  VideoCanvasBackgroundKindDTO kind = VideoCanvasBackgroundKindDTO::solid;
  std::string color;
  std::string secondaryColor;
  double angleDegrees = 0;

  static constexpr auto fields() {
    using DTO = VideoCanvasBackgroundDTO;
    return json::table(json::field("kind", &DTO::kind), json::field("color", &DTO::color),
                       json::field("secondaryColor", &DTO::secondaryColor),
                       json::field("angleDegrees", &DTO::angleDegrees));
  }
  bool operator==(const VideoCanvasBackgroundDTO&) const = default;
};

struct VideoCanvasConfigDTO {
  std::optional<NormalizedVideoRectDTO> contentFrame; // of the content on the frame; absent: by the mode
  VideoCanvasPresetDTO preset = VideoCanvasPresetDTO::original;
  std::int64_t widthPixels = 0;
  std::int64_t heightPixels = 0;
  VideoCanvasContentModeDTO contentMode = VideoCanvasContentModeDTO::fit;
  double manualScale = 1; // this and the offsets: in mode manual
  double offsetX = 0;     // fractions of the room that is left
  double offsetY = 0;
  double padding = 0; // fraction of the frame
  VideoCanvasBackgroundDTO background;
  double cornerRadius = 0; // fraction of the content's shorter side
  bool shadow = false;
  VideoSafeAreaDTO safeArea = VideoSafeAreaDTO::none;

  static constexpr auto fields() {
    using DTO = VideoCanvasConfigDTO;
    return json::table(
        json::field("contentFrame", &DTO::contentFrame), json::field("preset", &DTO::preset),
        json::field("widthPixels", &DTO::widthPixels), json::field("heightPixels", &DTO::heightPixels),
        json::field("contentMode", &DTO::contentMode), json::field("manualScale", &DTO::manualScale),
        json::field("offsetX", &DTO::offsetX), json::field("offsetY", &DTO::offsetY),
        json::field("padding", &DTO::padding), json::field("background", &DTO::background),
        json::field("cornerRadius", &DTO::cornerRadius), json::field("shadow", &DTO::shadow),
        json::field("safeArea", &DTO::safeArea));
  }
  bool operator==(const VideoCanvasConfigDTO&) const = default;
};

// Where captions stand, and how large.
struct VideoCaptionStyleDTO {
  NormalizedVideoRectDTO rect; // of the frame
  double fontScale = 0;

  static constexpr auto fields() {
    return json::table(json::field("rect", &VideoCaptionStyleDTO::rect),
                       json::field("fontScale", &VideoCaptionStyleDTO::fontScale));
  }
  bool operator==(const VideoCaptionStyleDTO&) const = default;
};

struct VideoOutputVersionDTO {
  std::optional<VideoCaptionStyleDTO> captionStyle;
  std::optional<VideoCameraLayerDTO> camera; // instead of the project's
  std::optional<bool> cameraAvoidsPointer;   // the host's own; only carried along
  std::string id;
  std::string name;
  VideoCanvasConfigDTO canvas;
  VideoLayerAnchorDTO cameraAnchor = VideoLayerAnchorDTO::content;
  VideoLayerAnchorDTO shortcutAnchor = VideoLayerAnchorDTO::content;

  static constexpr auto fields() {
    using DTO = VideoOutputVersionDTO;
    return json::table(json::field("captionStyle", &DTO::captionStyle), json::field("camera", &DTO::camera),
                       json::field("cameraAvoidsPointer", &DTO::cameraAvoidsPointer),
                       json::field("id", &DTO::id), json::field("name", &DTO::name),
                       json::field("canvas", &DTO::canvas), json::field("cameraAnchor", &DTO::cameraAnchor),
                       json::field("shortcutAnchor", &DTO::shortcutAnchor));
  }
  bool operator==(const VideoOutputVersionDTO&) const = default;
};

} // namespace tessarin
