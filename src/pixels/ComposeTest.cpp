#include "pixels/Compose.hpp"
#include "pixels/Kernels.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

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

TEST(Compose, blendsTheAlphaOfATargetThatHasOne) {
  TestPicture badge(9, 1, 0, 0, 1);
  TestPicture target(9, 1, 0, 0, 1);
  const int alphas[9][3] = {{0, 0, 0},     {0, 255, 255}, {255, 0, 255},   {128, 128, 192}, {1, 1, 2},
                            {254, 1, 254}, {1, 254, 254}, {100, 200, 222}, {255, 255, 255}};
  for (int x = 0; x < 9; ++x) {
    std::fill_n(badge.pixel(x, 0), 4, static_cast<std::uint8_t>(alphas[x][0]));
    std::fill_n(target.pixel(x, 0), 4, static_cast<std::uint8_t>(alphas[x][1]));
  }
  Canvas canvas = target.canvas();
  canvas.format = PixelFormat::bgra8Premultiplied;
  blendOver(badge.view(), canvas, 0, 0);
  for (int x = 0; x < 9; ++x)
    for (int channel = 0; channel < 4; ++channel)
      EXPECT_EQ(target.pixel(x, 0)[channel], alphas[x][2]) << x << ", " << channel;
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

TEST(Compose, weighsLayersByMaskAndOpacity) {
  const Mask mask(600, 4, RoundedRect{0.5, 0.25, 599, 3.5, 1.5}); // wider than what is weighed at once
  for (const PixelFormat format : {PixelFormat::bgrx8, PixelFormat::bgra8Premultiplied})
    for (const Mask* shape : {static_cast<const Mask*>(nullptr), &mask})
      for (const double opacity : {-1.0, 0.0, 0.3, 1.0, 7.0})
        for (const Position at : {Position{0, 0}, {-3, -1}, {40, 2}, {700, 0}}) {
          TestPicture layer(600, 4, 1, 4, 23);
          TestPicture target(590, 6, 3, 8, 24);
          const TestPicture before = target;
          PictureView view = layer.view();
          view.format = format;
          blendOver(view, target.canvas(), at.x, at.y, {shape, opacity});
          for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 590; ++x) {
              const int column = x - at.x;
              const int line = y - at.y;
              const bool isInside = column >= 0 && column < 600 && line >= 0 && line < 4;
              const long step = std::lround(std::clamp(opacity, 0.0, 1.0) * 255);
              const int share = isInside && shape != nullptr ? shape->row(line)[column] : 255;
              const double weight =
                  isInside ? static_cast<double>(std::lround(share * step / 255.0)) / 255 : 0;
              const auto weighed = [&](int channel) {
                if (!isInside)
                  return 0L;
                const bool isSolid = channel == 3 && format == PixelFormat::bgrx8;
                return std::lround((isSolid ? 255 : layer.pixel(column, line)[channel]) * weight);
              };
              for (int channel = 0; channel < 3; ++channel) {
                const long below = before.pixel(x, y)[channel];
                const long over =
                    weighed(channel) + std::lround(static_cast<double>(below * (255 - weighed(3))) / 255.0);
                ASSERT_EQ(target.pixel(x, y)[channel], std::min(over, 255L))
                    << opacity << " at " << x << "," << y;
              }
              ASSERT_EQ(target.pixel(x, y)[3], before.pixel(x, y)[3]);
            }
        }
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

TEST(Kernels, everyVersionBlendsAndMasksToTheSameBytes) {
  for (const bool flag : {false, true})
    for (std::size_t pixels = 0; pixels <= 70; ++pixels) {
      const auto width = static_cast<int>(pixels);
      const TestPicture source(width, 1, 1, 4, 41);
      const TestPicture below(width, 1, 3, 4, 42);
      std::vector<std::uint8_t> weights(pixels);
      std::vector<std::uint8_t> whites(pixels);
      for (std::size_t x = 0; x < pixels; ++x) {
        weights[x] = static_cast<std::uint8_t>(x * 37);
        whites[x] = static_cast<std::uint8_t>((255 - weights[x]) * (x % 3) / 2);
      }
      std::vector<std::uint8_t> blended;
      std::vector<std::uint8_t> masked;
      for (const Kernels& kernels : availableKernels()) {
        TestPicture blend = below;
        kernels.blendRow(source.pixel(0, 0), blend.pixel(0, 0), pixels, flag);
        TestPicture mask = source;
        kernels.maskRow(mask.pixel(0, 0), weights.data(), whites.data(), pixels, flag);
        if (blended.empty()) {
          blended = blend.bytes();
          masked = mask.bytes();
        }
        ASSERT_EQ(blend.bytes(), blended) << kernels.name;
        ASSERT_EQ(mask.bytes(), masked) << kernels.name;
      }
    }
}

TEST(Kernels, everyVersionMasksWithExactRounding) {
  for (const Kernels& kernels : availableKernels())
    for (int weight = 0; weight <= 255; ++weight)
      for (const int white : {0, (255 - weight) / 2, 255 - weight})
        for (const bool isOpaque : {false, true}) {
          std::vector<std::uint8_t> row(256 * 4);
          for (std::size_t i = 0; i < row.size(); ++i)
            row[i] = static_cast<std::uint8_t>(i / 4);
          const std::vector<std::uint8_t> weights(256, static_cast<std::uint8_t>(weight));
          const std::vector<std::uint8_t> whites(256, static_cast<std::uint8_t>(white));
          kernels.maskRow(row.data(), weights.data(), whites.data(), 256, isOpaque);
          for (std::size_t i = 0; i < row.size(); ++i) {
            const double value = isOpaque && i % 4 == 3 ? 255 : static_cast<double>(i / 4);
            ASSERT_EQ(row[i], std::lround(value * weight / 255) + white)
                << kernels.name << ": " << value << " by " << weight;
          }
        }
}

} // namespace
} // namespace tessarin::pixels
