#pragma once

#include "base/Json.hpp"

#include <cstdint>

namespace tessarin {

enum class RecordingCodec : std::uint8_t { h264, hevc };
constexpr auto jsonNames(RecordingCodec) {
  return json::names<RecordingCodec>({{RecordingCodec::h264, "h264"}, {RecordingCodec::hevc, "hevc"}});
}

} // namespace tessarin
