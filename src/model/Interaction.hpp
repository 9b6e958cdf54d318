#pragma once

#include "base/Json.hpp"

#include <cstddef>
#include <cstdint>

namespace tessarin {

// The buttons of a pointer as recordings tell them apart. Steps of a wheel are no buttons.
enum class InteractionMouseButton : std::uint8_t { left, right, other };
constexpr auto jsonNames(InteractionMouseButton) {
  return json::names<InteractionMouseButton>({{InteractionMouseButton::left, "left"},
                                              {InteractionMouseButton::right, "right"},
                                              {InteractionMouseButton::other, "other"}});
}

inline constexpr std::size_t interactionMouseButtonCount = 3;

} // namespace tessarin
