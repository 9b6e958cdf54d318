#include "pixels/BorderedMask.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace tessarin::pixels {
namespace {

struct Case {
  const char* name;
  int width, height;
  RoundedRect shape;
  double border;
};

const Case cases[] = {
    {"straight", 20, 12, {0, 0, 20, 12, 0}, 0},
    {"straight with a border", 20, 12, {0, 0, 20, 12, 0}, 1.5},
    {"round", 20, 40, {0, 0, 20, 40, 5}, 0},
    {"round with a border", 20, 40, {0, 0, 20, 40, 5}, 2.25},
    {"two half circles", 20, 40, {0, 0, 20, 40, 10}, 1},
    {"a border wider than the corners", 20, 40, {0, 0, 20, 40, 1}, 3},
    {"between pixels", 20, 40, {0.25, 0.75, 19.5, 39.125, 3}, 0.4},
    {"a circle", 15, 15, {0, 0, 15, 15, 7.5}, 0.2},
    {"one pixel", 1, 1, {0.25, 0, 1, 1, 0.1}, 0.2},
    {"two pixels", 2, 2, {0, 0, 2, 2, 1}, 0.024},
    {"one line between the corners", 20, 11, {0, 0, 20, 11, 5}, 0},
    {"two lines between the corners", 20, 12, {0, 0, 20, 12, 5}, 0},
    {"no line between the corners", 20, 10, {0, 0, 20, 10, 5}, 0},
};

TEST(BorderedMask, LaysThePictureOverWhiteWithinTheShape) {
  for (const Case& c : cases)
    for (const bool isOpaque : {false, true}) {
      TestPicture picture(c.width, c.height, 1, 4, 7);
      const TestPicture before = picture;
      BorderedMask(c.width, c.height, c.shape, c.border).apply(picture.canvas(), isOpaque);
      const auto outer = covered(c.shape, c.width, c.height);
      const auto inner = covered(c.shape.inset(c.border), c.width, c.height);
      for (int y = 0; y < c.height; ++y)
        for (int x = 0; x < c.width; ++x) {
          const int whole = outer[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
          const int within = inner[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
          for (int channel = 0; channel < 4; ++channel) {
            const int value = isOpaque && channel == 3 ? 255 : before.pixel(x, y)[channel];
            ASSERT_EQ(picture.pixel(x, y)[channel], std::lround(value * within / 255.0) + whole - within)
                << c.name << " at " << x << "," << y;
          }
        }
    }
}

TEST(BorderedMask, LeavesWhatLiesBesideTheRowsAlone) {
  constexpr std::size_t offset = 3;
  constexpr std::size_t stride = 9 * 4 + 12;
  TestPicture picture(9, 7, offset, 12, 7);
  TestPicture before = picture;
  BorderedMask(9, 7, {0, 0, 9, 7, 3.5}, 1).apply(picture.canvas(), true);
  for (std::size_t i = 0; i < offset; ++i)
    EXPECT_EQ(picture.bytes()[i], before.bytes()[i]);
  for (std::size_t row = 0; row < 7; ++row)
    for (std::size_t i = offset + row * stride + std::size_t{9 * 4}; i < offset + (row + 1) * stride; ++i)
      EXPECT_EQ(picture.bytes()[i], before.bytes()[i]);
}

} // namespace
} // namespace tessarin::pixels
