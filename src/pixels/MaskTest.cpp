#include "pixels/Mask.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numbers>
#include <numeric>
#include <span>
#include <vector>

namespace tessarin::pixels {
namespace {

double sampledShare(const Ellipse& shape, int x, int y) {
  constexpr int steps = 128;
  const double across = (shape.right - shape.left) / 2;
  const double along = (shape.bottom - shape.top) / 2;
  int inside = 0;
  for (int line = 0; line < steps; ++line)
    for (int column = 0; column < steps; ++column) {
      const double u = (x + (column + 0.5) / steps - shape.left) / across - 1;
      const double v = (y + (line + 0.5) / steps - shape.top) / along - 1;
      inside += u * u + v * v <= 1 ? 1 : 0;
    }
  return inside / double(steps * steps);
}

const Ellipse ellipses[] = {{0, 0, 12, 9},        {0, 0, 9, 9},         {0.25, 0.5, 11.75, 8.5},
                            {3.2, 4.1, 3.9, 4.6}, {3.6, 4.6, 4.4, 5.4}, {-3.5, -2.25, 14.5, 11},
                            {5, 0, 6, 9},         {0, 4.3, 12, 4.9},    {-100, -3, 100, 12.5}};

TEST(Ellipse, CoversEachPixelByItsArea) {
  for (const Ellipse& shape : ellipses)
    for (int y = 0; y < 9; ++y) {
      CoveredLine line(12, 77);
      shape.cover(y, line);
      for (int x = 0; x < 12; ++x)
        ASSERT_NEAR(line[static_cast<std::size_t>(x)], sampledShare(shape, x, y) * 255, 1.8)
            << shape.left << " to " << shape.right << " at " << x << "," << y;
    }
}

TEST(Ellipse, IsARoundedRectangleWhereItIsACircle) {
  for (const double side : {1.0, 2.0, 8.5, 33.0}) {
    const Ellipse ellipse{0.5, 1.25, 0.5 + side, 1.25 + side};
    const RoundedRect rect{0.5, 1.25, 0.5 + side, 1.25 + side, side / 2};
    for (int y = 0; y < 36; ++y) {
      CoveredLine one(36, 1);
      CoveredLine other(36, 2);
      ellipse.cover(y, one);
      rect.cover(y, other);
      EXPECT_EQ(one, other) << side << " at " << y;
    }
  }
}

TEST(Ellipse, HasTheAreaOfItsShape) {
  double sum = 0;
  for (int y = 0; y < 303; ++y) {
    CoveredLine line(402);
    Ellipse{1, 2, 401, 302}.cover(y, line);
    sum = std::accumulate(line.begin(), line.end(), sum);
  }
  EXPECT_NEAR(sum / 255, 200 * 150 * std::numbers::pi, 0.3); // each of some thousand pixels is rounded
}

TEST(Ellipse, CoversNothingWhereItIsNot) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  for (const Ellipse& shape :
       {Ellipse{20, 2, 30, 8}, Ellipse{-30, 2, -20, 8}, Ellipse{2, 20, 8, 30}, Ellipse{5, 2, 5, 8},
        Ellipse{5, 2, 4, 8}, Ellipse{2, 8, 8, 2}, Ellipse{none, 2, 8, 8}, Ellipse{2, none, 8, 8}})
    for (int y = 0; y < 9; ++y) {
      CoveredLine line(12, 77);
      shape.cover(y, line);
      EXPECT_EQ(line, CoveredLine(12, 0));
    }
}

template<class Shape> void expectLines(const Shape& shape, int width, int height) {
  const Mask mask(width, height, shape);
  ASSERT_EQ(mask.width(), width);
  ASSERT_EQ(mask.height(), height);
  for (int y = 0; y < height; ++y) {
    CoveredLine line(static_cast<std::size_t>(width));
    shape.cover(y, line);
    EXPECT_EQ(CoveredLine(mask.row(y), mask.row(y) + width), line) << y;
  }
}

TEST(Mask, HasTheLinesOfItsShape) {
  for (const Ellipse& shape : ellipses)
    expectLines(shape, 12, 9);
  for (const RoundedRect& shape : {RoundedRect{0.5, 1.5, 11, 40, 3.3}, RoundedRect{0, 0, 12, 50, 0},
                                   RoundedRect{-4, -4, 16, 60, 5}, RoundedRect{20, 20, 30, 30, 2}})
    expectLines(shape, 12, 50);
  expectLines(RoundedRect{0, 0, 7680, 2, 1}, 7680, 2);
  expectLines(RoundedRect{0, 0, 2, 7680, 1}, 2, 7680);
  expectLines(Ellipse{0, 0, 1, 1}, 1, 1);
}

} // namespace
} // namespace tessarin::pixels
