#pragma once

#include "base/Json.hpp"
#include "model/ClipSpan.hpp"
#include "model/VideoGeometry.hpp"

#include <cstdint>
#include <optional>
#include <vector>

// The camera's place over a recording, as recordings and edit projects describe it. Plain values; decoding
// repairs nothing, and bounds are the validators' business.
namespace tessarin {

enum class VideoCameraShapeDTO : std::uint8_t { rounded, circle, rectangle };
constexpr auto jsonNames(VideoCameraShapeDTO) {
  return json::names<VideoCameraShapeDTO>({{VideoCameraShapeDTO::rounded, "rounded"},
                                           {VideoCameraShapeDTO::circle, "circle"},
                                           {VideoCameraShapeDTO::rectangle, "rectangle"}});
}

struct VideoCameraPositionDTO {
  std::int64_t sourceTimeMs = 0;
  NormalizedVideoRectDTO rect;

  static constexpr auto fields() {
    return json::table(json::field("sourceTimeMs", &VideoCameraPositionDTO::sourceTimeMs),
                       json::field("rect", &VideoCameraPositionDTO::rect));
  }
  bool operator==(const VideoCameraPositionDTO&) const = default;
};

struct VideoCameraLayerDTO {
  bool visible = false;
  NormalizedVideoRectDTO rect; // of the frame
  VideoCameraShapeDTO shape = VideoCameraShapeDTO::rounded;
  std::optional<bool> mirrored;                                         // absent: no
  std::optional<bool> borderVisible;                                    // absent: no
  std::optional<std::vector<VideoCameraPositionDTO>> recordedPositions; // in non-decreasing source time

  static constexpr auto fields() {
    using DTO = VideoCameraLayerDTO;
    return json::table(json::field("visible", &DTO::visible), json::field("rect", &DTO::rect),
                       json::field("shape", &DTO::shape), json::field("mirrored", &DTO::mirrored),
                       json::field("borderVisible", &DTO::borderVisible),
                       json::field("recordedPositions", &DTO::recordedPositions));
  }

  // The layer at one instant: with the rectangle of the last position at or before it, of the first one
  // before that, and without a path. A layer without positions stays as it is.
  VideoCameraLayerDTO at(std::int64_t timeMs) const;

  // The path moved from source time to the output of these clips. A layer without positions stays as it is.
  VideoCameraLayerDTO mappedToOutput(const std::vector<ClipSpan>& clips) const;

  bool operator==(const VideoCameraLayerDTO&) const = default;
};

} // namespace tessarin
