#include "pixels/Fill.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace tessarin::pixels {
namespace {

constexpr Color orange{1, 0.5, 0, 1};
constexpr Color veil{0.2, 0.4, 0.8, 0.5};
const PixelArea areas[] = {{0, 0, 19, 9},  {3, 2, 11, 5}, {-5, -5, 2, 2}, {15, 7, 90, 90},
                           {20, 0, 30, 9}, {4, 4, 4, 8},  {6, 4, 5, 8},   {-(1 << 30), 0, 1 << 30, 3}};

bool isInside(const PixelArea& area, int x, int y) {
  return x >= area.left && x < area.right && y >= area.top && y < area.bottom;
}

TEST(Fill, PutsAColorInTheAreaAlone) {
  for (const PixelArea& area : areas) {
    TestPicture picture(19, 9, 1, 4, 141);
    const TestPicture before = picture;
    fillArea(picture.canvas(), area, veil);
    const std::uint8_t expected[4] = {102, 51, 26, 128}; // 0.8, 0.4, 0.2 and 1 times 127.5
    for (int y = 0; y < 9; ++y)
      for (int x = 0; x < 19; ++x)
        ASSERT_EQ(std::memcmp(picture.pixel(x, y), isInside(area, x, y) ? expected : before.pixel(x, y), 4),
                  0);
  }
}

TEST(Fill, PutsOpaqueColorsAsTheyAre) {
  TestPicture picture(300, 1, 0, 0, 142); // more than one run
  fillArea(picture.canvas(), {0, 0, 300, 1}, orange);
  for (int x = 0; x < 300; ++x)
    EXPECT_EQ(CoveredLine(picture.pixel(x, 0), picture.pixel(x, 0) + 4), (CoveredLine{0, 128, 255, 255}));
}

int over(int color, int alpha, int below) {
  return std::min(color + static_cast<int>(std::lround(below * (255 - alpha) / 255.0)), 255);
}

TEST(Fill, LaysAColorOverTheAreaAlone) {
  const std::uint8_t color[4] = {102, 51, 26, 128};
  for (const PixelArea& area : areas)
    for (const PixelFormat format : {PixelFormat::bgrx8, PixelFormat::bgra8Premultiplied}) {
      TestPicture picture(19, 9, 1, 4, 143);
      const TestPicture before = picture;
      Canvas canvas = picture.canvas();
      canvas.format = format;
      blendColor(canvas, area, veil);
      for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 19; ++x)
          for (int channel = 0; channel < 4; ++channel) {
            const int below = before.pixel(x, y)[channel];
            const bool isKept = !isInside(area, x, y) || (channel == 3 && format == PixelFormat::bgrx8);
            ASSERT_EQ(picture.pixel(x, y)[channel], isKept ? below : over(color[channel], 128, below));
          }
    }
}

TEST(Fill, LaysAColorThroughAMask) {
  const std::uint8_t color[4] = {102, 51, 26, 128};
  const Mask mask(300, 6, RoundedRect{0.5, 0.5, 299, 5.5, 2});
  for (const auto& [left, top] :
       {std::pair(0, 0), {-7, -2}, {12, 3}, {-400, 0}, {0, 70}, {1 << 30, 1 << 30}}) {
    TestPicture picture(290, 8, 1, 4, 144);
    const TestPicture before = picture;
    blendColor(picture.canvas(), left, top, mask, veil);
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 290; ++x) {
        const bool isMasked = x >= left && x - left < 300 && y >= top && y - top < 6;
        const int weight = isMasked ? mask.row(y - top)[x - left] : 0;
        const int alpha = static_cast<int>(std::lround(128 * weight / 255.0));
        for (int channel = 0; channel < 3; ++channel)
          ASSERT_EQ(picture.pixel(x, y)[channel],
                    over(static_cast<int>(std::lround(color[channel] * weight / 255.0)), alpha,
                         before.pixel(x, y)[channel]))
              << left << "," << top << " at " << x << "," << y;
        ASSERT_EQ(picture.pixel(x, y)[3], before.pixel(x, y)[3]);
      }
  }
}

TEST(Fill, ColorsALayerByItsAlpha) {
  const TestPicture layer(300, 5, 1, 4, 145);
  TestPicture colored(300, 5, 3, 8, 146);
  colorByAlpha(layer.view(), Color{0, 0, 0, 0.45}, colored.canvas());
  TestPicture inPlace = layer;
  colorByAlpha(inPlace.view(), Color{1, 0, 0, 1}, inPlace.canvas());
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 300; ++x) {
      const std::uint8_t alpha = layer.pixel(x, y)[3];
      const auto shadow =
          static_cast<std::uint8_t>(std::lround(115 * alpha / 255.0)); // 0.45 of 255 is 114.75
      ASSERT_EQ(CoveredLine(colored.pixel(x, y), colored.pixel(x, y) + 4), (CoveredLine{0, 0, 0, shadow}));
      ASSERT_EQ(CoveredLine(inPlace.pixel(x, y), inPlace.pixel(x, y) + 4), (CoveredLine{0, 0, alpha, alpha}));
    }
}

// The value at a place, from the definition.
double valueAt(const LinearGradient& gradient, double start, double end, int x, int y) {
  const double alongX = gradient.endX - gradient.startX;
  const double alongY = gradient.endY - gradient.startY;
  const double place = ((x + 0.5 - gradient.startX) * alongX + (y + 0.5 - gradient.startY) * alongY) /
                       (alongX * alongX + alongY * alongY);
  return start + (end - start) * std::clamp(place, 0.0, 1.0);
}

const LinearGradient gradients[] = {
    {0, 0, 64, 48, {0, 0, 0, 1}, {1, 1, 1, 1}},
    {60, 10, 3, 40, {0.9, 0.1, 0.3, 1}, {0.2, 0.15, 0.3, 0.25}},
    {32, 48, 32, 0, {0.1, 0.5, 0.2, 1}, {0.11, 0.49, 0.9, 1}},
    {0, 0, 0.1, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {-5000, 20, 9000, 24, {0.5, 0.5, 0.5, 1}, {0.6, 0.4, 0.5, 1}},
};

TEST(Fill, MakesGradientsWithinOneLevel) {
  for (const LinearGradient& gradient : gradients) {
    TestPicture picture(64, 48, 1, 4, 147);
    fillGradient(picture.canvas(), gradient);
    const Color& start = gradient.start;
    const Color& end = gradient.end;
    const double from[4] = {start.blue * start.alpha, start.green * start.alpha, start.red * start.alpha,
                            start.alpha};
    const double to[4] = {end.blue * end.alpha, end.green * end.alpha, end.red * end.alpha, end.alpha};
    for (int y = 0; y < 48; ++y)
      for (int x = 0; x < 64; ++x)
        for (int channel = 0; channel < 4; ++channel)
          ASSERT_NEAR(picture.pixel(x, y)[channel], 255 * valueAt(gradient, from[channel], to[channel], x, y),
                      1.0001)
              << x << "," << y;
  }
}

// Where rounding alone would leave bands of several pixels, each square of eight has the mean.
TEST(Fill, ShowsNoBandsInSlowGradients) {
  const LinearGradient slow{0, 0, 512, 16, {0.4, 0.4, 0.4, 1}, {0.42, 0.41, 0.37, 1}};
  TestPicture picture(512, 64, 0, 0, 148);
  fillGradient(picture.canvas(), slow);
  for (int top = 0; top < 64; top += 8)
    for (int left = 0; left < 512; left += 8) {
      double sum = 0;
      double exact = 0;
      for (int i = 0; i < 64; ++i) {
        sum += picture.pixel(left + i % 8, top + i / 8)[0];
        exact += 255 * valueAt(slow, slow.start.blue, slow.end.blue, left + i % 8, top + i / 8);
      }
      ASSERT_NEAR(sum / 64, exact / 64, 0.05) << left << "," << top;
    }
}

TEST(Fill, KeepsWholeLevelsInGradients) {
  for (int level = 0; level <= 255; ++level) {
    TestPicture picture(9, 9, 0, 0, 149);
    const Color color = Color::gray(level / 255.0);
    fillGradient(picture.canvas(), {0, 0, 9, 9, color, color});
    for (int i = 0; i < 81; ++i)
      ASSERT_EQ(picture.pixel(i % 9, i / 9)[0], level);
  }
  TestPicture ends(9, 1, 0, 0, 150);
  fillGradient(ends.canvas(), {3, 0, 6, 0, {0, 0, 0, 1}, {1, 1, 1, 1}});
  EXPECT_EQ(ends.pixel(2, 0)[0], 0);
  EXPECT_EQ(ends.pixel(6, 0)[0], 255);
}

TEST(Fill, MakesGradientsWithoutADirectionTheirEnd) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  for (const LinearGradient& gradient :
       {LinearGradient{3, 3, 3, 3, veil, orange}, LinearGradient{none, 3, 3, 4, veil, orange},
        LinearGradient{0, 0, 1e300, 0, veil, orange}}) {
    TestPicture picture(5, 5, 0, 0, 151);
    fillGradient(picture.canvas(), gradient);
    for (int i = 0; i < 25; ++i)
      EXPECT_EQ(CoveredLine(picture.pixel(i % 5, i / 5), picture.pixel(i % 5, i / 5) + 4),
                (CoveredLine{0, 128, 255, 255}));
  }
}

} // namespace
} // namespace tessarin::pixels
