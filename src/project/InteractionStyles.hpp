#pragma once

#include "base/Json.hpp"

#include <cstdint>

namespace tessarin {

// How the badge of a shortcut looks.
enum class InteractionShortcutStyleDTO : std::uint8_t { dark, light, minimal };
constexpr auto jsonNames(InteractionShortcutStyleDTO) {
  return json::names<InteractionShortcutStyleDTO>({{InteractionShortcutStyleDTO::dark, "dark"},
                                                   {InteractionShortcutStyleDTO::light, "light"},
                                                   {InteractionShortcutStyleDTO::minimal, "minimal"}});
}

} // namespace tessarin
