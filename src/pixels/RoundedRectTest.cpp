#include "pixels/RoundedRect.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <vector>

namespace tessarin::pixels {
namespace {

bool isInside(const RoundedRect& rect, double x, double y) {
  if (x < rect.left || x > rect.right || y < rect.top || y > rect.bottom)
    return false;
  const double dx = std::max({rect.left + rect.radius - x, x - (rect.right - rect.radius), 0.0});
  const double dy = std::max({rect.top + rect.radius - y, y - (rect.bottom - rect.radius), 0.0});
  return dx * dx + dy * dy <= rect.radius * rect.radius;
}

// The share of a pixel by counting points of a fine grid.
double sampledShare(const RoundedRect& rect, int x, int y) {
  constexpr int steps = 128;
  int inside = 0;
  for (int row = 0; row < steps; ++row)
    for (int column = 0; column < steps; ++column)
      inside += isInside(rect, x + (column + 0.5) / steps, y + (row + 0.5) / steps) ? 1 : 0;
  return inside / double(steps * steps);
}

const RoundedRect rects[] = {
    {0, 0, 12, 9, 0},             // whole pixels, straight
    {0, 0, 12, 9, 3},             // whole pixels
    {0, 0, 12, 9, 4.5},           // two half circles
    {0, 0, 9, 9, 4.5},            // a circle
    {0.25, 0.5, 11.75, 8.5, 2.3}, // edges between pixels
    {1.3, 2.7, 7.1, 8.2, 0},      // straight, between pixels
    {1.3, 2.7, 7.1, 8.2, 2.75},   // with half circles
    {3.2, 4.1, 3.9, 4.6, 0.2},    // within one pixel
    {3.2, 4.1, 3.9, 4.8, 0.35},   // a circle within one pixel
    {3.6, 4.6, 4.4, 5.4, 0.4},    // a circle over four pixels
    {-3.5, -2.25, 14.5, 11.5, 6}, // beyond the target at all sides
    {5, 0, 6, 9, 0.5},            // as narrow as a pixel
};

TEST(RoundedRect, CoversEachPixelByItsArea) {
  for (const RoundedRect& rect : rects) {
    const auto lines = covered(rect, 12, 9);
    for (int y = 0; y < 9; ++y)
      for (int x = 0; x < 12; ++x)
        ASSERT_NEAR(lines[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)],
                    sampledShare(rect, x, y) * 255, 1.8)
            << rect.left << " to " << rect.right << ", radius " << rect.radius << " at " << x << "," << y;
  }
}

TEST(RoundedRect, CoversStraightEdgesExactly) {
  const auto lines = covered({0.5, 1.25, 3.2, 3, 0}, 5, 4);
  EXPECT_EQ(lines[0], (CoveredLine{0, 0, 0, 0, 0}));
  EXPECT_EQ(lines[1], (CoveredLine{96, 191, 191, 38, 0})); // three quarters, of a half and of a fifth
  EXPECT_EQ(lines[2], (CoveredLine{128, 255, 255, 51, 0}));
  EXPECT_EQ(lines[3], (CoveredLine{0, 0, 0, 0, 0}));
}

TEST(RoundedRect, CoversACircleOfOnePixelByAQuarterOfPi) {
  EXPECT_EQ(covered({0, 0, 1, 1, 0.5}, 1, 1)[0], CoveredLine{200}); // 255 * pi / 4 is 200.3
  EXPECT_EQ(covered({0, 0, 2, 2, 1}, 2, 2), (std::vector<CoveredLine>{{200, 200}, {200, 200}}));
}

// Rounding each pixel adds up to little, where every pixel is exact.
TEST(RoundedRect, HasTheAreaOfItsShape) {
  for (const double radius : {0.0, 10.0, 41.7, 150.0}) {
    double sum = 0;
    for (const CoveredLine& line : covered({1, 2, 401, 302, radius}, 402, 303))
      sum = std::accumulate(line.begin(), line.end(), sum);
    const double area = 400 * 300 - (4 - std::numbers::pi) * radius * radius;
    EXPECT_NEAR(sum / 255, area, 0.1) << radius;
  }
}

TEST(RoundedRect, IsAlikeInAllFourCorners) {
  for (const RoundedRect& rect : {RoundedRect{0, 0, 40, 30, 3}, RoundedRect{0, 0, 40, 30, 15},
                                  RoundedRect{0.3, 0.6, 39.7, 29.4, 7.77}, RoundedRect{1, 2, 39, 28, 0.4}}) {
    const auto lines = covered(rect, 40, 30);
    for (std::size_t y = 0; y < 30; ++y) {
      EXPECT_EQ(lines[y], lines[29 - y]) << y;
      EXPECT_TRUE(std::equal(lines[y].begin(), lines[y].end(), lines[y].rbegin())) << y;
    }
  }
  const auto circle = covered({0, 0, 33, 33, 16.5}, 33, 33);
  for (std::size_t y = 0; y < 33; ++y)
    for (std::size_t x = 0; x < 33; ++x)
      EXPECT_EQ(circle[y][x], circle[x][y]);
}

TEST(RoundedRect, RisesTowardsItsMiddle) {
  for (const double radius : {4.0, 28.8, 144.0}) {
    const auto lines = covered({0, 0, 384, 288, radius}, 384, 288);
    for (std::size_t y = 0; y < 143; ++y)
      for (std::size_t x = 0; x < 191; ++x) {
        ASSERT_LE(lines[y][x], lines[y][x + 1]) << x << "," << y;
        ASSERT_LE(lines[y][x], lines[y + 1][x]) << x << "," << y;
      }
    EXPECT_EQ(lines[144][192], 255);
  }
}

TEST(RoundedRect, CoversNothingWhereItIsNot) {
  for (const RoundedRect& rect :
       {RoundedRect{20, 2, 30, 8, 2}, RoundedRect{-30, 2, -20, 8, 2}, RoundedRect{2, 20, 8, 30, 2},
        RoundedRect{5, 2, 5, 8, 0}, RoundedRect{5, 2, 4, 8, 0}, RoundedRect{2, 8, 8, 2, 0}})
    for (const CoveredLine& line : covered(rect, 12, 9))
      EXPECT_EQ(line, CoveredLine(12, 0));
}

TEST(RoundedRect, InsetKeepsTheCentresOfItsCornersWhileItCan) {
  const RoundedRect rect{10, 20, 110, 80, 6};
  const auto expect = [](const RoundedRect& actual, const RoundedRect& expected) {
    EXPECT_DOUBLE_EQ(actual.left, expected.left);
    EXPECT_DOUBLE_EQ(actual.top, expected.top);
    EXPECT_DOUBLE_EQ(actual.right, expected.right);
    EXPECT_DOUBLE_EQ(actual.bottom, expected.bottom);
    EXPECT_DOUBLE_EQ(actual.radius, expected.radius);
  };
  expect(rect.inset(0.72), {10.72, 20.72, 109.28, 79.28, 5.28});
  expect(rect.inset(6), {16, 26, 104, 74, 0});
  expect(rect.inset(7), {17, 27, 103, 73, 0});
}

} // namespace
} // namespace tessarin::pixels
