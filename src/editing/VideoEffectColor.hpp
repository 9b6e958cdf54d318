#pragma once

#include "model/Picture.hpp"

#include <string_view>

// Colours as edit projects write them. Pure, any thread.
namespace tessarin::VideoEffectColor {

// Of "#rrggbb", opaque, or "#rrggbbaa": each byte's part of 255. White of a text that is neither, which no
// project that was checked holds.
Color color(std::string_view text);

// The same colour, as transparent as told, whatever its own alpha is.
Color color(std::string_view text, double alpha);

// What an outline of this colour has to be to be seen around it: white around dark ones, a dark grey around
// light ones, by the weights 0.299, 0.587 and 0.114 of red, green and blue. Its alpha takes no part.
Color contrastOutline(std::string_view text);

} // namespace tessarin::VideoEffectColor
