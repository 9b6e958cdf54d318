#include "editing/VideoEffectColor.hpp"

#include "project/EditBounds.hpp"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>

namespace tessarin::VideoEffectColor {

namespace {

using Bytes = std::array<std::uint8_t, 4>; // red, green, blue, alpha

constexpr Bytes white{255, 255, 255, 255};
constexpr int lightFrom = 128; // of 255
constexpr double outlineAlpha = 0.9;
constexpr Color darkOutline{9.0 / 255, 12.0 / 255, 18.0 / 255, outlineAlpha};

Bytes bytesOf(std::string_view text) {
  if (!editBounds::colorIsValid(text))
    return white;
  Bytes bytes = white;
  for (std::size_t at = 1; at < text.size(); at += 2)
    std::from_chars(text.data() + at, text.data() + at + 2, bytes[at / 2], 16);
  return bytes;
}

} // namespace

Color color(std::string_view text) {
  const Bytes bytes = bytesOf(text);
  return {bytes[0] / 255.0, bytes[1] / 255.0, bytes[2] / 255.0, bytes[3] / 255.0};
}

Color color(std::string_view text, double alpha) {
  Color result = color(text);
  result.alpha = alpha;
  return result;
}

Color contrastOutline(std::string_view text) {
  const Bytes bytes = bytesOf(text);
  // In thousandths, so that a grey of 128 is not by a hair below it.
  const bool isLight = 299 * bytes[0] + 587 * bytes[1] + 114 * bytes[2] >= 1000 * lightFrom;
  return isLight ? darkOutline : Color::gray(1, outlineAlpha);
}

} // namespace tessarin::VideoEffectColor
