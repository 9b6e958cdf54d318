#pragma once

#include "base/Json.hpp"

#include <cstdint>

namespace tessarin {

// What the fractions of a layer's place are fractions of: the recording's picture, or the whole frame.
enum class VideoLayerAnchorDTO : std::uint8_t { content, canvas };
constexpr auto jsonNames(VideoLayerAnchorDTO) {
  return json::names<VideoLayerAnchorDTO>(
      {{VideoLayerAnchorDTO::content, "content"}, {VideoLayerAnchorDTO::canvas, "canvas"}});
}

} // namespace tessarin
