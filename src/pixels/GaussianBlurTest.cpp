#include "pixels/GaussianBlur.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace tessarin::pixels {
namespace {

struct Exact {
  int width;
  std::vector<double> channels;
  double at(int x, int y, int channel) const {
    return channels[static_cast<std::size_t>((y * width + x) * 4 + channel)];
  }
};

// One direction, over six deviations; the nearest pixel goes on beyond the edges.
class Weights {
 public:
  explicit Weights(double deviation) : radius_(static_cast<int>(std::ceil(6 * deviation))) {
    for (int offset = -radius_; offset <= radius_; ++offset) {
      weights_.push_back(std::exp(-0.5 * offset * offset / (deviation * deviation)));
      sum_ += weights_.back();
    }
  }
  template<class At> double operator()(int middle, int length, const At& at) const {
    double sum = 0;
    for (int offset = -radius_; offset <= radius_; ++offset)
      sum += weights_[static_cast<std::size_t>(offset + radius_)] *
             at(std::clamp(middle + offset, 0, length - 1));
    return sum / sum_;
  }

 private:
  int radius_;
  std::vector<double> weights_;
  double sum_ = 0;
};

Exact exactBlur(const TestPicture& picture, int width, int height, double deviation) {
  Exact across{width, std::vector<double>(static_cast<std::size_t>(width * height * 4))};
  Exact both = across;
  const Weights weighed(deviation);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int channel = 0; channel < 4; ++channel)
        across.channels[static_cast<std::size_t>((y * width + x) * 4 + channel)] =
            weighed(x, width, [&](int at) { return double(picture.pixel(at, y)[channel]); });
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int channel = 0; channel < 4; ++channel)
        both.channels[static_cast<std::size_t>((y * width + x) * 4 + channel)] =
            weighed(y, height, [&](int at) { return across.at(x, at, channel); });
  return both;
}

// Edges of black and white at all distances from each other and from the sides, which are the worst case,
// beside noise.
TestPicture edges(int width, int height) {
  TestPicture picture(width, height, 1, 8, 81);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      picture.pixel(x, y)[0] = x < width / 2 ? 0 : 255;
      picture.pixel(x, y)[1] = y * 3 < height ? 255 : 0;
      picture.pixel(x, y)[2] = (x * x / 64 + y / 9) % 2 != 0 ? 255 : 0;
    }
  return picture;
}

constexpr double deviations[] = {0.3,   0.5, 1,    2.3,   3.99, 4,  4.7, 5.99, 6,   7.5, 9.1,
                                 11.99, 12,  17.3, 23.99, 24,   25, 40,  48,   100, 192, 250};

TEST(GaussianBlur, IsWithinItsErrorOfTheExactOne) {
  const int sizes[][2] = {{2, 2}, {1, 1}, {3, 40}, {97, 61}};
  for (const double deviation : deviations)
    for (const auto& [width, height] : sizes) {
      TestPicture picture = edges(width, height);
      const Exact exact = exactBlur(picture, width, height, deviation);
      TestPicture blurred(width, height, 3, 4, 82);
      GaussianBlur().blur(picture.view(), {0, 0, width, height}, deviation, blurred.canvas());
      double most = 0;
      double squares = 0;
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
          for (int channel = 0; channel < 4; ++channel) {
            const double error = blurred.pixel(x, y)[channel] - exact.at(x, y, channel);
            most = std::max(most, std::abs(error));
            squares += error * error;
          }
      const double mean = std::sqrt(squares / (width * height * 4));
      EXPECT_LT(most, 1) << deviation << " on " << width << "x" << height;
      if (width > 4) {
        EXPECT_LT(mean, 0.5) << deviation;
      }
    }
}

TEST(GaussianBlur, KeepsAColor) {
  for (const double deviation : deviations) {
    TestPicture picture(33, 21, 1, 4, 83);
    for (int y = 0; y < 21; ++y)
      for (int x = 0; x < 33; ++x)
        for (int channel = 0; channel < 4; ++channel)
          picture.pixel(x, y)[channel] =
              std::array<std::uint8_t, 4>{0, 1, 200, 255}[static_cast<std::size_t>(channel)];
    TestPicture blurred(33, 21, 3, 4, 84);
    GaussianBlur().blur(picture.view(), {0, 0, 33, 21}, deviation, blurred.canvas());
    for (int y = 0; y < 21; ++y)
      for (int x = 0; x < 33; ++x)
        ASSERT_TRUE(std::equal(blurred.pixel(x, y), blurred.pixel(x, y) + 4, picture.pixel(x, y)))
            << deviation;
  }
}

const PixelArea areas[] = {
    {0, 0, 90, 70}, {13, 9, 57, 40}, {0, 20, 1, 21}, {89, 69, 90, 70}, {40, 0, 60, 70}};

TEST(GaussianBlur, BlursAPartAsItBlursTheWhole) {
  GaussianBlur blur; // one for all, so that what it keeps is used again
  for (const double deviation : deviations) {
    const TestPicture picture = edges(90, 70);
    TestPicture whole(90, 70, 0, 0, 85);
    blur.blur(picture.view(), {0, 0, 90, 70}, deviation, whole.canvas());
    for (const PixelArea& area : areas) {
      TestPicture part(area.width(), area.height(), 1, 12, 86);
      TestPicture inPlace = picture;
      blur.blur(picture.view(), area, deviation, part.canvas());
      blur.blur(inPlace.view(), area, deviation, partOf(inPlace.canvas(), area));
      for (int y = 0; y < 70; ++y)
        for (int x = 0; x < 90; ++x) {
          const bool isInside = x >= area.left && x < area.right && y >= area.top && y < area.bottom;
          const std::uint8_t* expected = isInside ? whole.pixel(x, y) : picture.pixel(x, y);
          ASSERT_TRUE(std::equal(expected, expected + 4, inPlace.pixel(x, y))) << deviation << " in place";
          if (isInside) {
            ASSERT_TRUE(std::equal(expected, expected + 4, part.pixel(x - area.left, y - area.top)))
                << deviation << " at " << x << "," << y;
          }
        }
    }
  }
}

TEST(GaussianBlur, ReadsNothingBeyondItsReach) {
  const PixelArea area{60, 50, 70, 55};
  for (const double deviation : {0.5, 2.0, 5.9, 6.0, 8.0}) {
    const TestPicture picture(130, 110, 0, 0, 87);
    TestPicture changed = picture;
    const int reach = GaussianBlur::reach(deviation);
    for (int y = 0; y < 110; ++y)
      for (int x = 0; x < 130; ++x)
        if (x < area.left - reach || x >= area.right + reach || y < area.top - reach ||
            y >= area.bottom + reach)
          std::fill_n(changed.pixel(x, y), 4, std::uint8_t{99});
    ASSERT_NE(changed.bytes(),
              picture.view().data == nullptr ? changed.bytes() : TestPicture(picture).bytes());
    TestPicture one(10, 5, 0, 0, 88);
    TestPicture other(10, 5, 0, 0, 89);
    GaussianBlur().blur(picture.view(), area, deviation, one.canvas());
    GaussianBlur().blur(changed.view(), area, deviation, other.canvas());
    EXPECT_EQ(one.bytes(), other.bytes()) << deviation;
  }
}

TEST(GaussianBlur, TellsItsReach) {
  EXPECT_EQ(GaussianBlur::reach(0), 0);
  EXPECT_EQ(GaussianBlur::reach(0.3), 1);
  EXPECT_EQ(GaussianBlur::reach(1), 4);
  EXPECT_EQ(GaussianBlur::reach(3.99), 13);
  EXPECT_EQ(GaussianBlur::reach(4), 18);  // seven cells of two pixels, and two more
  EXPECT_EQ(GaussianBlur::reach(12), 48); // ten of four, and two more
}

TEST(GaussianBlur, CopiesWhereThereIsNothingToBlur) {
  for (const double deviation : {0.0, -3.0, std::numeric_limits<double>::quiet_NaN()}) {
    TestPicture picture(9, 7, 1, 4, 90);
    TestPicture copy(4, 3, 0, 0, 91);
    GaussianBlur().blur(picture.view(), {2, 1, 6, 4}, deviation, copy.canvas());
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 4; ++x)
        EXPECT_TRUE(std::equal(copy.pixel(x, y), copy.pixel(x, y) + 4, picture.pixel(x + 2, y + 1)));
  }
}

TEST(GaussianBlur, TakesLongLinesAndTheLargestDeviations) {
  for (const double deviation : {3.0, 100.0, 4096.0, 1e30, std::numeric_limits<double>::infinity()})
    for (const auto& [width, height] : {std::pair(7680, 2), std::pair(2, 7680)}) {
      TestPicture picture(width, height, 0, 4, 92);
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
          std::fill_n(picture.pixel(x, y), 4,
                      std::uint8_t{x + y < 3840 ? std::uint8_t{0} : std::uint8_t{255}});
      TestPicture blurred(width, height, 0, 4, 93);
      GaussianBlur().blur(picture.view(), {0, 0, width, height}, deviation, blurred.canvas());
      const std::uint8_t* middle = blurred.pixel((width - 1) / 2, (height - 1) / 2);
      EXPECT_NEAR(middle[0], 127.5, 1 + 255 / std::min(deviation, 4096.0)) << deviation;
      EXPECT_LE(blurred.pixel(0, 0)[0], middle[0]);
      EXPECT_GE(blurred.pixel(width - 1, height - 1)[0], middle[0]);
    }
}

} // namespace
} // namespace tessarin::pixels
