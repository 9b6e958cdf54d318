#include "editing/VideoEffectColor.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using VideoEffectColor::color;
using VideoEffectColor::contrastOutline;

TEST(VideoEffectColor, ReadsSixOrEightDigits) {
  const std::pair<const char*, Color> cases[] = {
      {"#000000", {0, 0, 0, 1}},           {"#ffffff", {1, 1, 1, 1}},
      {"#FF0000", {1, 0, 0, 1}},           {"#00fF00", {0, 1, 0, 1}},
      {"#0000ff", {0, 0, 1, 1}},           {"#3366cc", {0.2, 0.4, 0.8, 1}},
      {"#3366cc99", {0.2, 0.4, 0.8, 0.6}}, {"#01020304", {1 / 255.0, 2 / 255.0, 3 / 255.0, 4 / 255.0}},
      {"#ffffff00", {1, 1, 1, 0}},         {"#00000080", {0, 0, 0, 128 / 255.0}},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(color(text), expected) << text;
}

TEST(VideoEffectColor, TakesWhatIsNoColorForWhite) {
  for (const char* text :
       {"", "#", "#12345", "#1234567", "#123456789", "123456", "#12345g", "#-12345", "red"})
    EXPECT_EQ(color(text), (Color{1, 1, 1, 1})) << text;
}

TEST(VideoEffectColor, ReplacesAlpha) {
  EXPECT_EQ(color("#3366cc99", 0.25), (Color{0.2, 0.4, 0.8, 0.25}));
  EXPECT_EQ(color("#3366cc", 0), (Color{0.2, 0.4, 0.8, 0}));
}

TEST(VideoEffectColor, OutlinesDarkInWhiteAndLightInDark) {
  const Color white{1, 1, 1, 0.9};
  const Color dark{0.03529411764705882, 0.047058823529411764, 0.07058823529411765, 0.9};
  const std::pair<const char*, Color> cases[] = {
      {"#000000", white},  {"#ffffff", dark},    {"#7f7f7f", white},
      {"#808080", dark},   {"#ff0000", white}, // 76.2
      {"#00ff00", dark},                       // 149.7
      {"#0000ff", white},                      // 29.1
      {"#00da00", white},                      // 127.966
      {"#00db00", dark},                       // 128.553
      {"#ffffff00", dark}, {"#000000ff", white}, {"no color", dark},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(contrastOutline(text), expected) << text;
}

} // namespace
} // namespace tessarin
