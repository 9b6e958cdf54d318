#include "presentation/ShortcutBadgeRenderer.hpp"

#include "support/ScriptedTypesetter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>

namespace tessarin {
namespace {

using testing::Each;
using testing::ElementsAre;

using Badge = ShortcutBadgeRenderer::Badge;
using Size = ShortcutBadgeRenderer::Size;
using Style = InteractionShortcutStyleDTO;
using Pixel = std::array<int, 4>; // blue, green, red, alpha

constexpr Style allStyles[] = {Style::dark, Style::light, Style::minimal};
constexpr Size small{300, 200};
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

class ShortcutBadgeRendererTest : public testing::Test {
 protected:
  std::optional<Badge> image(const std::vector<std::string>& keys, Style style = Style::dark,
                             const Size& size = small, double scale = 1) {
    return ShortcutBadgeRenderer(typesetter).image(keys, style, size, scale);
  }

  // The background alone.
  Picture background(Style style, double scale = 1) {
    typesetter.isBlank = true;
    return image({"Control", "K"}, style, small, scale).value().picture;
  }

  static Pixel pixel(const Picture& picture, std::int32_t x, std::int32_t y) {
    const std::uint8_t* const at = picture.view.data + y * picture.view.stride + std::ptrdiff_t{x} * 4;
    return {at[0], at[1], at[2], at[3]};
  }

  ScriptedTypesetter typesetter;
};

void expectRect(const RectDTO& rect, double x, double y, double width, double height) {
  EXPECT_NEAR(rect.x, x, 1e-9);
  EXPECT_NEAR(rect.y, y, 1e-9);
  EXPECT_NEAR(rect.width, width, 1e-9);
  EXPECT_NEAR(rect.height, height, 1e-9);
}

TEST_F(ShortcutBadgeRendererTest, joinsTheKeysInBoldHelvetica) {
  image({"Escape"});
  image({"Control", "Option", "Shift", "Command", "Page Up"});
  EXPECT_THAT(typesetter.texts,
              ElementsAre("Escape", "Control  +  Option  +  Shift  +  Command  +  Page Up"));
  for (const FontDescription& font : typesetter.fonts) {
    EXPECT_EQ(font.family, "Helvetica");
    EXPECT_TRUE(font.isBold);
  }
}

TEST_F(ShortcutBadgeRendererTest, takesTheFontsSizeFromTheShorterSide) {
  const struct {
    Size size;
    double fontSize;
  } cases[] = {{{1920, 1080}, 28.08}, {{1080, 1920}, 28.08}, {{300, 200}, 14},
               {{1000, 538}, 14},     {{1000, 539}, 14.014}, {{1, 1}, 14}};
  for (const auto& each : cases) {
    typesetter.fonts.clear();
    ASSERT_TRUE(image({"K"}, Style::dark, each.size));
    EXPECT_NEAR(typesetter.fonts.at(0).size, each.fontSize, 1e-9);
  }
}

// Thirteen letters of half an em.
TEST_F(ShortcutBadgeRendererTest, placesTheBadgeInTheMiddleAboveTheBottom) {
  expectRect(image({"Control", "K"}, Style::dark, {1920, 1080})->rect, 843.468, 961.632, 233.064, 58.968);
  expectRect(image({"Control", "K"}, Style::dark, {300, 200})->rect, 91.9, 159.6, 116.2, 29.4);
  expectRect(image({"Control", "K"}, Style::dark, {300, 200}, 2)->rect, 91.9, 159.6, 116.2, 29.4);
  // Wider and higher than what it is shown on.
  expectRect(image({"Control", "K"}, Style::dark, {100, 20})->rect, -8.1, -10.5, 116.2, 29.4);
}

TEST_F(ShortcutBadgeRendererTest, makesABitmapThatTheBadgeJustFitsInto) {
  const struct {
    double scale;
    std::int32_t width, height;
  } cases[] = {{0.001, 1, 1}, {0.5, 59, 15}, {1, 117, 30}, {1.5, 175, 45}, {2, 233, 59}, {4, 465, 118}};
  for (const auto& each : cases) {
    const auto badge = image({"Control", "K"}, Style::dark, small, each.scale);
    ASSERT_TRUE(badge) << each.scale;
    const PictureView& view = badge->picture.view;
    EXPECT_EQ(view.width, each.width) << each.scale;
    EXPECT_EQ(view.height, each.height) << each.scale;
    EXPECT_GE(view.stride, view.width * 4);
    EXPECT_EQ(view.format, PixelFormat::bgra8Premultiplied);
    EXPECT_NE(badge->picture.owner, nullptr);
  }
}

TEST_F(ShortcutBadgeRendererTest, yieldsNothingWithoutKeys) {
  EXPECT_FALSE(image({}));
  EXPECT_THAT(typesetter.texts, ElementsAre());
  EXPECT_TRUE(image({"K"}));
}

TEST_F(ShortcutBadgeRendererTest, refusesSizesAndScalesThatAreNone) {
  for (const double value : {0.0, -1.0, nan, infinity, -infinity}) {
    EXPECT_FALSE(image({"K"}, Style::dark, {value, 200})) << value;
    EXPECT_FALSE(image({"K"}, Style::dark, {300, value})) << value;
    EXPECT_FALSE(image({"K"}, Style::dark, small, value)) << value;
  }
  EXPECT_THAT(typesetter.texts, ElementsAre());
  EXPECT_TRUE(image({"K"}, Style::dark, {0.001, 0.001}, 0.001));
}

TEST_F(ShortcutBadgeRendererTest, boundsTheRenderSizeAndTheScale) {
  EXPECT_TRUE(image({"K"}, Style::dark, {32768, 200}));
  EXPECT_FALSE(image({"K"}, Style::dark, {32768.01, 200}));
  EXPECT_TRUE(image({"K"}, Style::dark, {300, 32768}));
  EXPECT_FALSE(image({"K"}, Style::dark, {300, 32768.01}));
  EXPECT_TRUE(image({"K"}, Style::dark, small, 4));
  EXPECT_FALSE(image({"K"}, Style::dark, small, 4.001));
}

TEST_F(ShortcutBadgeRendererTest, boundsTheBitmap) {
  const std::string longKey(289, 'x'); // 2048.2 units of badge
  const auto widest = image({longKey}, Style::dark, small, 3.9996);
  ASSERT_TRUE(widest);
  EXPECT_EQ(widest->picture.view.width, 8192);
  EXPECT_FALSE(image({longKey}, Style::dark, small, 3.9998));

  const auto highest = image({"K"}, Style::dark, {32768, 32768}, 1.1446); // 1789.1328 units of badge
  ASSERT_TRUE(highest);
  EXPECT_EQ(highest->picture.view.height, 2048);
  EXPECT_FALSE(image({"K"}, Style::dark, {32768, 32768}, 1.1448));
}

TEST_F(ShortcutBadgeRendererTest, yieldsNothingWhereTextCannotBeSet) {
  typesetter.isUnavailable = true;
  EXPECT_FALSE(image({"K"}));
  typesetter.isUnavailable = false;
  typesetter.isUndrawable = true;
  EXPECT_FALSE(image({"K"}));
}

TEST_F(ShortcutBadgeRendererTest, fillsTheBackgroundOfEachStyle) {
  const Pixel colors[] = {{9, 9, 9, 224}, {230, 230, 230, 230}, {0, 0, 0, 115}};
  for (std::size_t i = 0; i < std::size(allStyles); ++i)
    for (const double scale : {1.0, 1.5, 2.0, 4.0}) {
      const Picture picture = background(allStyles[i], scale);
      const std::int32_t width = picture.view.width;
      const std::int32_t height = picture.view.height;
      EXPECT_EQ(pixel(picture, width / 2, height / 2), colors[i]);
      EXPECT_EQ(pixel(picture, width / 2, 0), colors[i]);
      EXPECT_EQ(pixel(picture, 0, height / 2), colors[i]);
    }
}

// At scale 1 the badge covers two tenths of the last column and four tenths of the last row.
TEST_F(ShortcutBadgeRendererTest, endsBetweenPixels) {
  const Picture picture = background(Style::dark);
  EXPECT_EQ(pixel(picture, 115, 15)[3], 224);
  EXPECT_NEAR(pixel(picture, 116, 15)[3], 0.2 * 224, 1);
  EXPECT_EQ(pixel(picture, 58, 28)[3], 224);
  EXPECT_NEAR(pixel(picture, 58, 29)[3], 0.4 * 224, 1);
}

// How much of a pixel lies in the rounded rectangle, by 32 x 32 points.
double coverage(double x, double y, double width, double height, double radius) {
  constexpr int points = 32;
  int inside = 0;
  for (int i = 0; i < points * points; ++i) {
    const double px = x + (i % points + 0.5) / points;
    const double py = y + (i / points + 0.5) / points;
    if (px > width || py > height)
      continue;
    const double dx = std::max({radius - px, px - (width - radius), 0.0});
    const double dy = std::max({radius - py, py - (height - radius), 0.0});
    inside += dx * dx + dy * dy <= radius * radius;
  }
  return static_cast<double>(inside) / (points * points);
}

TEST_F(ShortcutBadgeRendererTest, roundsTheCornersSmoothly) {
  for (const double scale : {1.0, 1.5, 2.0, 4.0}) {
    const Picture picture = background(Style::light, scale);
    const double width = 116.2 * scale;
    const double height = 29.4 * scale;
    for (std::int32_t y = 0; y < picture.view.height; ++y)
      for (std::int32_t x = 0; x < picture.view.width; ++x) {
        const double expected = 0.9 * coverage(x, y, width, height, 0.28 * height);
        ASSERT_NEAR(pixel(picture, x, y)[3] / 255.0, expected, 0.02) << x << ' ' << y << " at " << scale;
      }
    EXPECT_EQ(pixel(picture, 0, 0)[3], 0);
  }
}

TEST_F(ShortcutBadgeRendererTest, drawsTheTextInTheColourOfEachStyle) {
  const Pixel colors[] = {{255, 255, 255, 255}, {13, 13, 13, 255}, {255, 255, 255, 255}};
  for (std::size_t i = 0; i < std::size(allStyles); ++i)
    for (const double scale : {1.0, 1.5, 2.0, 4.0}) {
      const auto badge = image({"Control", "K"}, allStyles[i], small, scale);
      ASSERT_TRUE(badge);
      const Picture& picture = badge->picture;
      EXPECT_EQ(pixel(picture, picture.view.width / 2, picture.view.height / 2), colors[i]);
      EXPECT_NE(pixel(picture, picture.view.width / 2, 0), colors[i]);
    }
}

// The capitals of the scripted font are 0.7 em high.
TEST_F(ShortcutBadgeRendererTest, putsTheTextInTheMiddleOnAWholeRowOfPixels) {
  const struct {
    Size size;
    double scale, x, y;
  } cases[] = {{{300, 200}, 1, 12.6, 20},
               {{300, 200}, 1.5, 12.6, 29 / 1.5},
               {{300, 200}, 2, 12.6, 19.5},
               {{300, 200}, 4, 12.6, 19.5},
               {{1920, 1080}, 1, 25.272, 39},
               {{1920, 1080}, 2, 25.272, 39.5},
               {{1920, 1080}, 1.5, 25.272, 59 / 1.5}};
  for (const auto& each : cases) {
    typesetter.drawings.clear();
    ASSERT_TRUE(image({"Control", "K"}, Style::dark, each.size, each.scale));
    const ScriptedTypesetter::Drawing& drawing = typesetter.drawings.at(0);
    EXPECT_NEAR(drawing.x, each.x, 1e-9);
    EXPECT_NEAR(drawing.y, each.y, 1e-9);
    EXPECT_EQ(drawing.scale, each.scale);
  }
}

TEST_F(ShortcutBadgeRendererTest, multipliesEveryPixelByItsAlpha) {
  for (const Style style : allStyles)
    for (const double scale : {1.0, 1.5, 2.0, 4.0}) {
      const Picture picture = image({"Control", "K"}, style, small, scale).value().picture;
      std::vector<int> excess;
      for (std::int32_t y = 0; y < picture.view.height; ++y)
        for (std::int32_t x = 0; x < picture.view.width; ++x) {
          const Pixel at = pixel(picture, x, y);
          excess.push_back(std::max({at[0], at[1], at[2]}) - at[3]);
        }
      EXPECT_THAT(excess, Each(testing::Le(0)));
    }
}

} // namespace
} // namespace tessarin
