#include "pixels/FittedScaler.hpp"
#include "pixels/Kernels.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace tessarin::pixels {
namespace {

// One channel of one target pixel, straight from the definition, in floating point.
double referenceSample(const PictureView& source, const FittedArea& area, int x, int y, int channel) {
  const double scale =
      std::max((area.right - area.left) / source.width, (area.bottom - area.top) / source.height);
  const auto weights = [&](int length, double areaFrom, double areaTo, int index) {
    std::vector<double> shares(static_cast<std::size_t>(length), 0);
    const double center = (areaFrom + areaTo) / 2;
    const double from = length / 2.0 + (std::max<double>(index, areaFrom) - center) / scale;
    const double to = length / 2.0 + (std::min<double>(index + 1, areaTo) - center) / scale;
    if (scale < 1) {
      for (int i = 0; i < length; ++i)
        shares[static_cast<std::size_t>(i)] =
            std::max(0.0, std::min(to, i + 1.0) - std::max(from, double(i))) / (to - from);
    } else {
      const double middle = std::clamp((from + to) / 2 - 0.5, 0.0, length - 1.0);
      const int first = static_cast<int>(middle);
      shares[static_cast<std::size_t>(first)] += 1 - (middle - first);
      shares[static_cast<std::size_t>(std::min(first + 1, length - 1))] += middle - first;
    }
    return shares;
  };
  const std::vector<double> columns = weights(source.width, area.left, area.right, x);
  const std::vector<double> lines = weights(source.height, area.top, area.bottom, y);
  double sum = 0;
  for (int row = 0; row < source.height; ++row)
    for (int column = 0; column < source.width; ++column)
      sum += lines[static_cast<std::size_t>(row)] * columns[static_cast<std::size_t>(column)] *
             rowOf(source, row)[(area.isMirrored ? source.width - 1 - column : column) * 4 + channel];
  return sum;
}

struct Case {
  int sourceWidth, sourceHeight, targetWidth, targetHeight;
};

const Case cases[] = {
    {40, 20, 20, 10}, // half
    {41, 20, 20, 10}, // cropped at the sides
    {40, 23, 20, 10}, // cropped above and below
    {60, 45, 40, 30}, // two thirds
    {50, 50, 48, 46}, // a little down
    {33, 17, 6, 2},   // far down
    {7, 5, 14, 10},   // twice
    {16, 9, 30, 18},  // up, cropped
    {1, 1, 8, 6},     // one pixel
    {3, 200, 2, 2},   // extreme crop
    {200, 3, 2, 2},
};

void expectDefinition(int sourceWidth, int sourceHeight, const FittedArea& area, unsigned seed) {
  const TestPicture source(sourceWidth, sourceHeight, 1, 4, seed);
  TestPicture target(area.width, area.height, 3, 8, seed + 1);
  FittedScaler(sourceWidth, sourceHeight, area).scale(source.view(), target.canvas());
  for (int y = 0; y < area.height; ++y)
    for (int x = 0; x < area.width; ++x)
      for (int channel = 0; channel < 4; ++channel)
        ASSERT_LE(std::abs(target.pixel(x, y)[channel] - referenceSample(source.view(), area, x, y, channel)),
                  0.6)
            << sourceWidth << "x" << sourceHeight << " to " << area.width << "x" << area.height << " from "
            << area.left << "," << area.top << " at " << x << "," << y;
}

TEST(FittedScaler, followsTheDefinitionWithinRounding) {
  unsigned seed = 1;
  for (const Case& c : cases) {
    expectDefinition(c.sourceWidth, c.sourceHeight, FittedArea::whole(c.targetWidth, c.targetHeight), seed++);
    FittedArea mirrored = FittedArea::whole(c.targetWidth, c.targetHeight);
    mirrored.isMirrored = true;
    expectDefinition(c.sourceWidth, c.sourceHeight, mirrored, seed++);
  }
}

TEST(FittedScaler, fillsAPartThatBeginsAndEndsBetweenPixels) {
  const FittedArea areas[] = {{20, 10, 0.25, 0.5, 19.75, 9.5}, {20, 10, 0.9, 0, 20, 9.1},
                              {20, 10, 0, 0.999, 19.001, 10},  {20, 10, 0.5, 0.5, 19.5, 9.25, true},
                              {2, 2, 0.75, 0.75, 1.25, 1.25},  {1, 1, 0.3, 0.4, 0.8, 0.6},
                              {1, 1, 0.3, 0.4, 0.302, 0.402},  {30, 1, 0.5, 0.25, 29.5, 0.5, true},
                              {1, 30, 0.001, 0.5, 0.999, 29.5}};
  const std::pair<int, int> sizes[] = {{40, 20}, {41, 37}, {19, 9}, {7, 5}, {1, 1}, {3, 200}, {200, 3}};
  unsigned seed = 100;
  for (const FittedArea& area : areas)
    for (const auto& [width, height] : sizes)
      expectDefinition(width, height, area, seed++);
}

TEST(FittedScaler, mirrorsWholePixelsAtFactorOne) {
  const TestPicture source(13, 11, 1, 0, 5);
  TestPicture target(10, 11, 0, 0, 6);
  FittedArea area = FittedArea::whole(10, 11);
  area.isMirrored = true;
  FittedScaler(13, 11, area).scale(source.view(), target.canvas());
  for (int y = 0; y < 11; ++y)
    for (int x = 0; x < 10; ++x)
      ASSERT_TRUE(std::equal(target.pixel(x, y), target.pixel(x, y) + 4, source.pixel(11 - x, y)));
}

TEST(FittedScaler, keepsAFlatColorExactly) {
  for (const Case& c : cases) {
    TestPicture source(c.sourceWidth, c.sourceHeight, 0, 0, 1);
    std::fill(source.bytes().begin(), source.bytes().end(), std::uint8_t{255});
    TestPicture target(c.targetWidth, c.targetHeight, 0, 0, 2);
    FittedScaler(c.sourceWidth, c.sourceHeight, c.targetWidth, c.targetHeight)
        .scale(source.view(), target.canvas());
    EXPECT_TRUE(
        std::all_of(target.bytes().begin(), target.bytes().end(), [](auto byte) { return byte == 255; }));
  }
}

TEST(FittedScaler, cropsAtFactorOneToWholePixels) {
  const TestPicture source(13, 11, 1, 0, 5);
  TestPicture target(10, 11, 0, 0, 6);
  FittedScaler(13, 11, 10, 11).scale(source.view(), target.canvas());
  for (int y = 0; y < 11; ++y)
    for (int x = 0; x < 10; ++x)
      ASSERT_TRUE(std::equal(target.pixel(x, y), target.pixel(x, y) + 4, source.pixel(x + 1, y)));
}

TEST(FittedScaler, convertsToTheSameColorsAsScalingFirst) {
  for (const Case& c :
       {Case{60, 45, 40, 30}, Case{40, 30, 40, 30}, Case{41, 31, 40, 30}, Case{7, 5, 14, 10}}) {
    const TestPicture source(c.sourceWidth, c.sourceHeight, 1, 4, 9);
    TestPicture scaled(c.targetWidth, c.targetHeight, 0, 0, 10);
    FittedScaler scaler(c.sourceWidth, c.sourceHeight, c.targetWidth, c.targetHeight);
    scaler.scale(source.view(), scaled.canvas());
    const std::ptrdiff_t size = std::ptrdiff_t{c.targetWidth} * c.targetHeight;
    std::vector<std::uint8_t> expected(static_cast<std::size_t>(size) * 3);
    std::vector<std::uint8_t> actual(expected.size());
    const auto planes = [&](std::vector<std::uint8_t>& bytes) {
      return I420Planes{bytes.data(),  bytes.data() + size, bytes.data() + 2 * size,
                        c.targetWidth, c.targetWidth,       c.targetWidth};
    };
    convertToI420(scaled.view(), planes(expected));
    scaler.scaleToI420(source.view(), planes(actual));
    EXPECT_EQ(actual, expected);
  }
}

TEST(FittedScaler, takesPicturesOfItsSourceSizeOnly) {
  const FittedScaler scaler(40, 20, 20, 10);
  EXPECT_TRUE(scaler.takes(TestPicture(40, 20, 0, 0, 1).view()));
  EXPECT_FALSE(scaler.takes(TestPicture(41, 20, 0, 0, 1).view()));
  EXPECT_FALSE(scaler.takes(TestPicture(40, 19, 0, 0, 1).view()));
}

// Weights that differ from pixel to pixel and from tap to tap, and sum up to 16384.
std::vector<std::int16_t> unevenWeights(std::size_t pixels, std::size_t taps) {
  std::vector<std::int16_t> weights;
  for (std::size_t x = 0; x < pixels; ++x) {
    std::int16_t left = 1 << weightBits;
    for (std::size_t tap = 0; tap + 1 < taps; ++tap) {
      weights.push_back(static_cast<std::int16_t>((x * 389 + tap * 1171) % 2700));
      left = static_cast<std::int16_t>(left - weights.back());
    }
    weights.push_back(left);
  }
  return weights;
}

TEST(Kernels, everyVersionCombinesAndResamplesToTheSameValues) {
  const std::vector<std::int16_t> rowWeights{3000, 9000, 4384, 0};
  for (const std::size_t tapCount : {2U, 4U, 6U})
    for (std::size_t pixels = 1; pixels <= 70; ++pixels) {
      const TestPicture picture(static_cast<int>(pixels), 4, 1, 4, static_cast<unsigned>(pixels));
      const std::uint8_t* rows[] = {picture.pixel(0, 0), picture.pixel(0, 1), picture.pixel(0, 2),
                                    picture.pixel(0, 3)};
      std::vector<std::int32_t> first;
      for (std::size_t x = 0; x < pixels; ++x)
        first.push_back(static_cast<std::int32_t>(x * 7 % pixels));
      const std::vector<std::int16_t> weights = unevenWeights(pixels, tapCount);
      const ScaleTaps taps{first, weights, static_cast<std::int32_t>(tapCount)};
      std::vector<std::int16_t> expectedRow;
      std::vector<std::uint8_t> expectedPixels;
      for (const Kernels& kernels : availableKernels()) {
        std::vector<std::int16_t> row((pixels + tapCount) * 4, 0);
        kernels.combineRows(rows, rowWeights.data(), 4, pixels * 4, row.data());
        std::vector<std::uint8_t> target(pixels * 4);
        kernels.resampleRow(row.data(), taps, target.data());
        if (expectedRow.empty()) {
          expectedRow = row;
          expectedPixels = target;
        }
        ASSERT_EQ(row, expectedRow) << kernels.name;
        ASSERT_EQ(target, expectedPixels) << kernels.name;
      }
    }
}

} // namespace
} // namespace tessarin::pixels
