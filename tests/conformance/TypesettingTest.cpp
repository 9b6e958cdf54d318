#include "TypesettingTesting.hpp"
#include "backends/posix/ModuleTypesetter.hpp"
#include "presentation/ShortcutBadgeRenderer.hpp"
#include "trace/InteractionShortcutPrivacy.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <set>
#include <thread>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const FontDescription badgeFont{.family = "Helvetica", .isBold = true, .size = 28};
constexpr Color white = Color::gray(1);

class TypesettingTest : public testing::Test {
 protected:
  std::unique_ptr<TypesetLine> line(const std::string& text, const FontDescription& font = badgeFont) {
    return typesetter.typesetLine(text, font);
  }
  Ink ink(const std::string& text, const FontDescription& font = badgeFont) {
    return inkOf(line(text, font)->draw(0, 0, 1, white));
  }

  std::vector<std::string> lines;
  ModuleLoader loader{{TESSARIN_MODULE_DIRECTORY},
                      [this](const std::string& text) { lines.push_back(text); }};
  ModuleTypesetter typesetter{loader};
};

// Of all keys that can come up in a shortcut, with the modifiers.
std::set<std::string> keyLabels() {
  std::set<std::string> labels;
  for (std::uint16_t code = 0; code < 128; ++code)
    if (const auto keys = InteractionShortcutPrivacy::keys(
            code, {.control = true, .option = true, .shift = true, .command = true}, false, false))
      labels.insert(keys->begin(), keys->end());
  return labels;
}

TEST_F(TypesettingTest, drawsTheLabelOfEveryKey) {
  const std::set<std::string> labels = keyLabels();
  EXPECT_EQ(labels.size(), 86U);
  std::set<std::uint64_t> hashes;
  for (const std::string& label : labels) {
    const auto set = line(label);
    const Ink drawn = inkOf(set->draw(0, 0, 1, white));
    EXPECT_GT(drawn.pixels, 5U) << label;
    EXPECT_GT(set->width(), 5) << label;
    EXPECT_LT(drawn.x, set->width()) << label;
    hashes.insert(drawn.hash);
  }
  EXPECT_EQ(hashes.size(), labels.size());
}

TEST_F(TypesettingTest, measuresAlikeWhicheverLettersThereAre) {
  const auto reference = line("x");
  EXPECT_GT(reference->ascent(), 0.6 * 28);
  EXPECT_GT(reference->descent(), 0.1 * 28);
  EXPECT_GT(reference->capitalHeight(), 0.6 * 28);
  EXPECT_LT(reference->capitalHeight(), 0.85 * 28);
  for (const std::string& label : keyLabels()) {
    EXPECT_EQ(line(label)->ascent(), reference->ascent()) << label;
    EXPECT_EQ(line(label)->descent(), reference->descent()) << label;
    EXPECT_EQ(line(label)->capitalHeight(), reference->capitalHeight()) << label;
  }
}

TEST_F(TypesettingTest, growsWithTheSizeOfTheFont) {
  const auto at14 = line("Command", {.family = "Helvetica", .isBold = true, .size = 14});
  const auto at28 = line("Command");
  EXPECT_NEAR(at28->width(), 2 * at14->width(), 0.02);
  EXPECT_NEAR(at28->ascent(), 2 * at14->ascent(), 0.01);
  EXPECT_NEAR(at28->descent(), 2 * at14->descent(), 0.01);
  const auto regular = line("Command", {.family = "Helvetica", .isBold = false, .size = 28});
  EXPECT_LT(regular->width(), at28->width());
}

TEST_F(TypesettingTest, drawsTheSameLineAtEveryScale) {
  const auto set = line("Control  +  K");
  const Ink one = inkOf(set->draw(0, 0, 1, white));
  for (const double scale : {0.5, 1.25, 1.5, 2.0, 3.0, 4.0}) {
    const PlacedPicture placed = set->draw(0, 0, scale, white);
    const Ink drawn = inkOf(placed);
    EXPECT_NEAR(drawn.x / scale, one.x, 0.1) << scale;
    EXPECT_NEAR(drawn.y / scale, one.y, 0.1) << scale;
    EXPECT_NEAR(drawn.alpha / (scale * scale), one.alpha, 0.02 * one.alpha) << scale;
    EXPECT_LE(placed.picture.view.width, std::ceil(set->width() * scale) + 1);
    EXPECT_GE(placed.picture.view.width, std::floor(set->width() * scale * 0.97));
  }
}

TEST_F(TypesettingTest, drawsWhereItIsTold) {
  const auto set = line("Shift");
  const PlacedPicture origin = set->draw(0, 0, 1, white);
  const PlacedPicture moved = set->draw(300, 40, 1, white);
  EXPECT_EQ(moved.x, origin.x + 300);
  EXPECT_EQ(moved.y, origin.y + 40);
  EXPECT_EQ(inkOf(moved).hash, inkOf(origin).hash);
  // Also between pixels.
  for (const double offset : {0.25, 0.5, 0.75}) {
    const Ink between = inkOf(set->draw(10 + offset, 20 + offset, 1, white));
    EXPECT_NEAR(between.x - inkOf(origin).x, 10 + offset, 0.03);
    EXPECT_NEAR(between.y - inkOf(origin).y, 20 + offset, 0.03);
  }
  // Left of and above the plane, too.
  EXPECT_LT(set->draw(-20, -5, 1, white).x, 0);
}

// An H stands on the baseline: its lower edge is sharp there, and nothing lies below.
TEST_F(TypesettingTest, standsOnTheBaseline) {
  const PlacedPicture placed = line("H")->draw(0, 50, 1, white);
  const PictureView& view = placed.picture.view;
  EXPECT_EQ(placed.y + view.height, 50);
  int opaque = 0;
  for (std::int32_t x = 0; x < view.width; ++x)
    opaque += pixelAt(view, x, view.height - 1)[3] == 255;
  EXPECT_GT(opaque, 4);
  EXPECT_NEAR(view.height, line("H")->capitalHeight(), 1);
}

TEST_F(TypesettingTest, yieldsNoMoreThanTheInk) {
  for (const std::string& label : keyLabels()) {
    const PlacedPicture placed = line(label)->draw(0.3, 30.6, 1.5, white);
    const PictureView& view = placed.picture.view;
    ASSERT_GT(view.width, 0);
    ASSERT_EQ(view.format, PixelFormat::bgra8Premultiplied);
    int left = 0, right = 0, top = 0, bottom = 0;
    for (std::int32_t y = 0; y < view.height; ++y) {
      left += pixelAt(view, 0, y)[3];
      right += pixelAt(view, view.width - 1, y)[3];
    }
    for (std::int32_t x = 0; x < view.width; ++x) {
      top += pixelAt(view, x, 0)[3];
      bottom += pixelAt(view, x, view.height - 1)[3];
    }
    EXPECT_TRUE(left > 0 && right > 0 && top > 0 && bottom > 0) << label;
  }
}

TEST_F(TypesettingTest, drawsInThePremultipliedColour) {
  const struct {
    Color color;
    int blue, green, red, alpha;
  } cases[] = {{Color::gray(1), 255, 255, 255, 255},
               {Color::gray(0.05), 13, 13, 13, 255},
               {{1, 0, 0.2, 1}, 51, 0, 255, 255},
               {{1, 0, 0, 0.4}, 0, 0, 102, 102}};
  for (const auto& each : cases) {
    const PlacedPicture placed = line("H")->draw(0, 50, 2, each.color);
    const PictureView& view = placed.picture.view;
    std::set<std::vector<int>> opaque;
    for (std::int32_t y = 0; y < view.height; ++y)
      for (std::int32_t x = 0; x < view.width; ++x) {
        const std::uint8_t* const pixel = pixelAt(view, x, y);
        EXPECT_LE(std::max({pixel[0], pixel[1], pixel[2]}), pixel[3]);
        if (pixel[3] == each.alpha)
          opaque.insert({pixel[0], pixel[1], pixel[2], pixel[3]});
      }
    EXPECT_THAT(opaque, ElementsAre(ElementsAre(each.blue, each.green, each.red, each.alpha)));
  }
}

TEST_F(TypesettingTest, drawsGrayEdgesWithoutColour) {
  const PlacedPicture placed = line("Option  +  S")->draw(0.4, 20.4, 1, white);
  const PictureView& view = placed.picture.view;
  for (std::int32_t y = 0; y < view.height; ++y)
    for (std::int32_t x = 0; x < view.width; ++x) {
      const std::uint8_t* const pixel = pixelAt(view, x, y);
      ASSERT_TRUE(pixel[0] == pixel[3] && pixel[1] == pixel[3] && pixel[2] == pixel[3]);
    }
}

TEST_F(TypesettingTest, hasNoPictureOfBlanks) {
  for (const char* text : {"", " ", "     "}) {
    const auto set = line(text);
    const PictureView view = set->draw(5, 5, 2, white).picture.view;
    EXPECT_EQ(view.width, 0) << '"' << text << '"';
    EXPECT_EQ(view.height, 0) << '"' << text << '"';
    EXPECT_GT(set->ascent(), 0);
  }
  EXPECT_EQ(line("")->width(), 0);
  EXPECT_GT(line("  ")->width(), line(" ")->width());
}

TEST_F(TypesettingTest, setsAnyBytesAsOneLine) {
  using namespace std::string_literals;
  const double height = line("x")->ascent() + line("x")->descent();
  for (const std::string& text :
       {"a\nb"s, "a\r\nb\n\n"s, "a\xE2\x80\xA9 b"s, "a\xff\xfe b"s, "a\0b"s, "\xE9"s, "\xF0\x9F\x98\x80"s,
        "\xD7\x90\xD7\x91 a"s, std::string(1000, 'M')}) {
    const auto set = line(text);
    EXPECT_GT(inkOf(set->draw(0, 0, 1, white)).pixels, 0U) << text;
    EXPECT_LT(set->ascent() + set->descent(), 2 * height) << text;
  }
}

TEST_F(TypesettingTest, refusesAPictureThatIsTooLargeOrTooFarAway) {
  const auto set = line("Command");
  EXPECT_THROW(set->draw(0, 0, 1000, white), TypesettingFailure);
  EXPECT_THROW(set->draw(1e12, 0, 1, white), TypesettingFailure);
  EXPECT_THROW(set->draw(0, std::nan(""), 1, white), TypesettingFailure);
  EXPECT_GT(inkOf(set->draw(0, 0, 1, white)).pixels, 0U);
  EXPECT_THROW(line(std::string(3000, 'M'))->draw(0, 0, 1, white), TypesettingFailure);
}

// Whether the first of the characters, written in a square of 100 units, has the stroke down its left side
// with which Japan writes the sign for "upright", and China does not.
bool hasLeftStroke(const TypesetLine& line) {
  const PlacedPicture placed = line.draw(0, 0, 1, white);
  const PictureView& view = placed.picture.view;
  double ink = 0;
  for (std::int32_t y = std::max(-55, placed.y); y < -25; ++y)
    for (std::int32_t x = std::max(0, placed.x); x < 20; ++x)
      ink += pixelAt(view, x - placed.x, y - placed.y)[3] / 255.0;
  return ink > 100;
}

TEST_F(TypesettingTest, writesHanAsInChinaUnlessItStandsBesideKana) {
  const FontDescription large{.family = "Helvetica", .isBold = true, .size = 100};
  EXPECT_FALSE(hasLeftStroke(*line("直", large)));
  EXPECT_FALSE(hasLeftStroke(*line("直  +  K", large)));
  EXPECT_TRUE(hasLeftStroke(*line("直の", large)));
  EXPECT_TRUE(hasLeftStroke(*line("直  +  カ", large)));
  EXPECT_GT(ink("直 뼈").pixels, ink("뼈").pixels);
}

TEST_F(TypesettingTest, mixesScriptsInOneLine) {
  const auto mixed = line("Command  +  返回");
  EXPECT_NEAR(mixed->width(), line("Command  +  ")->width() + line("返回")->width(), 0.1);
  EXPECT_EQ(mixed->capitalHeight(), line("K")->capitalHeight());
  EXPECT_GE(mixed->ascent(), line("K")->ascent());
}

TEST_F(TypesettingTest, keepsLinesBeyondTheirTypesetter) {
  std::unique_ptr<TypesetLine> kept;
  {
    ModuleTypesetter other(loader);
    kept = other.typesetLine("Tab", badgeFont);
  }
  EXPECT_EQ(inkOf(kept->draw(0, 0, 1, white)).hash, ink("Tab").hash);
}

TEST_F(TypesettingTest, servesManyThreadsAtOnce) {
  const std::uint64_t expected = ink("Control  +  返回").hash;
  std::vector<std::thread> threads;
  std::atomic<int> alike = 0;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, i] {
      ModuleTypesetter own(loader);
      TextTypesetter& mine = i % 2 == 0 ? typesetter : own;
      for (int round = 0; round < 20; ++round)
        alike +=
            inkOf(mine.typesetLine("Control  +  返回", badgeFont)->draw(0, 0, 1, white)).hash == expected;
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(alike, 80);
}

TEST_F(TypesettingTest, fitsFiveKeysOnABadge) {
  const ShortcutBadgeRenderer renderer(typesetter);
  const std::vector<std::string> keys = {"Control", "Option", "Shift", "Command", "Forward Delete"};
  for (const ShortcutBadgeRenderer::Size& size :
       {ShortcutBadgeRenderer::Size{3840, 2160}, {1920, 1080}, {1280, 720}, {640, 480}}) {
    const auto badge = renderer.image(keys, InteractionShortcutStyleDTO::dark, size, 1);
    ASSERT_TRUE(badge);
    EXPECT_GT(badge->rect.x, 0);
    EXPECT_LT(badge->rect.x + badge->rect.width, size.width);
    EXPECT_GT(badge->rect.y, 0.8 * size.height);
    EXPECT_LT(badge->rect.y + badge->rect.height, size.height);
  }
}

// White text on a badge that is nearly black: as much room above the capitals as below, and at both sides.
TEST_F(TypesettingTest, centresTheTextOfABadge) {
  const ShortcutBadgeRenderer renderer(typesetter);
  for (const double scale : {1.0, 1.5, 2.0, 4.0}) {
    const auto badge = renderer.image({"H", "H"}, InteractionShortcutStyleDTO::dark, {1920, 1080}, scale);
    ASSERT_TRUE(badge);
    const PictureView& view = badge->picture.view;
    std::int32_t left = view.width, right = 0, top = view.height, bottom = 0;
    for (std::int32_t y = 0; y < view.height; ++y)
      for (std::int32_t x = 0; x < view.width; ++x)
        if (pixelAt(view, x, y)[0] > 130) {
          left = std::min(left, x);
          right = std::max(right, x + 1);
          top = std::min(top, y);
          bottom = std::max(bottom, y + 1);
        }
    EXPECT_NEAR(left, badge->rect.width * scale - right, 2) << scale;
    EXPECT_NEAR(top, badge->rect.height * scale - bottom, 2) << scale;
  }
}

TEST_F(TypesettingTest, saysNothingWithItsModule) {
  line("K");
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(TypesettingTest, failsWithoutItsModuleAndTellsItOnce) {
  ModuleLoader empty({"/nowhere"}, [this](const std::string& text) { lines.push_back(text); });
  ModuleTypesetter without(empty);
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THROW(without.typesetLine("K", badgeFont), TypesettingFailure);
  EXPECT_THROW(without.typesetLine("K", badgeFont), TypesettingFailure);
  EXPECT_THAT(lines, ElementsAre("tessarin-native module-unavailable module=typesetting reason=missing"));
  EXPECT_FALSE(
      ShortcutBadgeRenderer(without).image({"K"}, InteractionShortcutStyleDTO::dark, {1920, 1080}, 1));
}

} // namespace
} // namespace tessarin
