#pragma once

#include "base/Json.hpp"

#include <cstdint>

namespace tessarin {

// How a click is marked.
enum class InteractionClickStyleDTO : std::uint8_t { ring, pulse, dot };
constexpr auto jsonNames(InteractionClickStyleDTO) {
  return json::names<InteractionClickStyleDTO>({{InteractionClickStyleDTO::ring, "ring"},
                                                {InteractionClickStyleDTO::pulse, "pulse"},
                                                {InteractionClickStyleDTO::dot, "dot"}});
}

// How a pointer that rests is marked.
enum class InteractionDwellStyleDTO : std::uint8_t { halo, spotlight };
constexpr auto jsonNames(InteractionDwellStyleDTO) {
  return json::names<InteractionDwellStyleDTO>(
      {{InteractionDwellStyleDTO::halo, "halo"}, {InteractionDwellStyleDTO::spotlight, "spotlight"}});
}

// How the badge of a shortcut looks.
enum class InteractionShortcutStyleDTO : std::uint8_t { dark, light, minimal };
constexpr auto jsonNames(InteractionShortcutStyleDTO) {
  return json::names<InteractionShortcutStyleDTO>({{InteractionShortcutStyleDTO::dark, "dark"},
                                                   {InteractionShortcutStyleDTO::light, "light"},
                                                   {InteractionShortcutStyleDTO::minimal, "minimal"}});
}

} // namespace tessarin
