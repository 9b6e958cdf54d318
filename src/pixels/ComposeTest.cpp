#include "pixels/Compose.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace tessarin::pixels {
namespace {

struct Position {
  int x, y;
};
const Position positions[] = {{0, 0},  {3, 2},   {-2, -3}, {9, 5},       {10, 6},        {-5, 0},
                              {0, -4}, {-50, 0}, {50, 50}, {1 << 30, 0}, {-(1 << 30), 0}};

TEST(Compose, blendsWithExactRoundingAndClipsAtEveryEdge) {
  for (const Position at : positions) {
    TestPicture pointer(5, 4, 1, 4, 11);
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x)
        for (int channel = 0; channel < 3; ++channel)
          pointer.pixel(x, y)[channel] = std::min(pointer.pixel(x, y)[channel], pointer.pixel(x, y)[3]);
    TestPicture target(10, 6, 3, 8, 12);
    const TestPicture before(10, 6, 3, 8, 12);
    blendOver(pointer.view(), target.canvas(), at.x, at.y);
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 10; ++x)
        for (int channel = 0; channel < 4; ++channel) {
          const int below = before.pixel(x, y)[channel];
          int expected = below;
          if (channel < 3 && x >= at.x && x < at.x + 5 && y >= at.y && y < at.y + 4) {
            const std::uint8_t* over = pointer.pixel(x - at.x, y - at.y);
            expected = over[channel] + static_cast<int>(std::lround(below * (255 - over[3]) / 255.0));
          }
          ASSERT_EQ(target.pixel(x, y)[channel], expected) << at.x << "," << at.y << " at " << x << "," << y;
        }
  }
}

TEST(Compose, blendsColorAboveItsAlphaToWhiteAtMost) {
  TestPicture pointer(1, 1, 0, 0, 1);
  std::fill_n(pointer.pixel(0, 0), 3, std::uint8_t{255});
  pointer.pixel(0, 0)[3] = 0;
  TestPicture target(1, 1, 0, 0, 1);
  std::fill_n(target.pixel(0, 0), 3, std::uint8_t{200});
  blendOver(pointer.view(), target.canvas(), 0, 0);
  EXPECT_EQ(target.pixel(0, 0)[0], 255);
}

TEST(Compose, copiesAndClipsAtEveryEdge) {
  for (const Position at : positions) {
    const TestPicture source(5, 4, 1, 4, 21);
    TestPicture target(10, 6, 3, 8, 22);
    const TestPicture before(10, 6, 3, 8, 22);
    copyPixels(source.view(), target.canvas(), at.x, at.y);
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 10; ++x) {
        const bool inside = x >= at.x && x < at.x + 5 && y >= at.y && y < at.y + 4;
        const std::uint8_t* expected = inside ? source.pixel(x - at.x, y - at.y) : before.pixel(x, y);
        ASSERT_TRUE(std::equal(expected, expected + 4, target.pixel(x, y)));
      }
  }
}

TEST(Compose, extendsEdgesWithTheNearestPixel) {
  const Borders all[] = {{0, 0, 0, 0}, {1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0},
                         {0, 0, 0, 1}, {1, 1, 1, 1}, {2, 1, 0, 3}, {5, 3, 1, 2}};
  for (const Borders& borders : all) {
    TestPicture picture(7, 6, 1, 4, 31);
    const TestPicture before(7, 6, 1, 4, 31);
    extendEdges(picture.canvas(), borders);
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 7; ++x) {
        const std::uint8_t* expected = before.pixel(std::clamp(x, borders.left, 6 - borders.right),
                                                    std::clamp(y, borders.top, 5 - borders.bottom));
        ASSERT_TRUE(std::equal(expected, expected + 4, picture.pixel(x, y))) << x << "," << y;
      }
  }
}

} // namespace
} // namespace tessarin::pixels
