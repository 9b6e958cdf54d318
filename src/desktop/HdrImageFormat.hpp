#pragma once

#include "base/Json.hpp"

#include <cstdint>

namespace tessarin {

enum class HdrImageFormat : std::uint8_t { png, jpeg, heic };
constexpr auto jsonNames(HdrImageFormat) {
  return json::names<HdrImageFormat>(
      {{HdrImageFormat::png, "png"}, {HdrImageFormat::jpeg, "jpeg"}, {HdrImageFormat::heic, "heic"}});
}

} // namespace tessarin
