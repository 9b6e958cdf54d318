#include "modules/editing/PictureExpansion.hpp"

#include "pixels/ColorConversion.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace tessarin::editing {
namespace {

struct Exact {
  double red = 0, green = 0, blue = 0;
};

Exact exactOf(double y, double u, double v, double kr, double kb, bool isFull) {
  const double luma = isFull ? y : (y - 16) * 255 / 219;
  const double scale = isFull ? 1 : 255.0 / 224;
  const double cb = (u - 128) * scale;
  const double cr = (v - 128) * scale;
  const double red = luma + 2 * (1 - kr) * cr;
  const double blue = luma + 2 * (1 - kb) * cb;
  const double green = (luma - kr * red - kb * blue) / (1 - kr - kb);
  return {red, green, blue};
}

double within(double value) {
  return std::clamp(value, 0.0, 255.0);
}

// Random samples without chroma shared between pixels, in every matrix, range and depth.
TEST(PictureExpansion, IsWithinOneOfTheExactValue) {
  constexpr std::int32_t width = 333;
  constexpr std::int32_t height = 40;
  struct Kind {
    YuvMatrix matrix;
    double kr, kb;
  };
  for (const Kind& kind : {Kind{YuvMatrix::bt601, 0.299, 0.114},
                           {YuvMatrix::bt709, 0.2126, 0.0722},
                           {YuvMatrix::bt2020, 0.2627, 0.0593}})
    for (const bool isFull : {false, true})
      for (const int bits : {8, 10}) {
        std::mt19937 random(1);
        std::vector<std::uint16_t> samples(3 * width * height);
        for (std::uint16_t& sample : samples)
          sample = static_cast<std::uint16_t>(random() % (1U << bits));
        std::vector<std::uint8_t> narrow(samples.begin(), samples.end());
        const auto* const bytes =
            bits == 8 ? narrow.data() : reinterpret_cast<const std::uint8_t*>(samples.data());
        const std::ptrdiff_t sampleBytes = bits == 8 ? 1 : 2;
        const std::ptrdiff_t plane = sampleBytes * width * height;
        std::vector<std::uint8_t> pixels(4 * width * height);
        expandToBgrx({bytes, bytes + plane, bytes + 2 * plane, sampleBytes * width, sampleBytes * width,
                      sampleBytes * width, bits, 0, 0},
                     kind.matrix, isFull, {pixels.data(), width, height, 4 * width, PixelFormat::bgrx8});
        const double unit = 1 << (bits - 8);
        double worst = 0;
        for (std::size_t i = 0; i < width * height; ++i) {
          const Exact exact = exactOf(samples[i] / unit, samples[width * height + i] / unit,
                                      samples[2 * width * height + i] / unit, kind.kr, kind.kb, isFull);
          worst = std::max({worst, std::abs(pixels[4 * i] - within(exact.blue)),
                            std::abs(pixels[4 * i + 1] - within(exact.green)),
                            std::abs(pixels[4 * i + 2] - within(exact.red))});
          ASSERT_EQ(pixels[4 * i + 3], 255);
        }
        EXPECT_LT(worst, 1) << static_cast<int>(kind.matrix) << isFull << bits;
      }
}

// There and back by the recorder's own conversion: flat colours stay as they are, but for what eight bits
// lose.
TEST(PictureExpansion, IsTheCounterpartOfTheConversionToPlanes) {
  constexpr std::int32_t side = 16;
  for (const std::array<int, 3> color : {std::array{60, 120, 200},
                                         {0, 0, 255},
                                         {255, 0, 0},
                                         {0, 255, 0},
                                         {255, 255, 255},
                                         {0, 0, 0},
                                         {10, 132, 255}}) {
    std::vector<std::uint8_t> pixels(4 * side * side);
    for (std::size_t i = 0; i < pixels.size(); ++i)
      pixels[i] = static_cast<std::uint8_t>(i % 4 == 3 ? 0 : color[2 - i % 4]);
    std::vector<std::uint8_t> y(side * side), u(side * side / 4), v(side * side / 4);
    pixels::convertToI420({pixels.data(), side, side, 4 * side, PixelFormat::bgrx8},
                          {y.data(), u.data(), v.data(), side, side / 2, side / 2});
    std::vector<std::uint8_t> back(4 * side * side);
    expandToBgrx({y.data(), u.data(), v.data(), side, side / 2, side / 2, 8, 1, 1}, YuvMatrix::bt709, false,
                 {back.data(), side, side, 4 * side, PixelFormat::bgrx8});
    for (std::size_t channel = 0; channel < 3; ++channel)
      EXPECT_NEAR(back[4 * 37 + channel], color[2 - channel], 2)
          << color[0] << ' ' << color[1] << ' ' << color[2];
  }
}

// Odd sizes: the last column and row have chroma of their own.
TEST(PictureExpansion, SharesChromaBetweenTheRightPixels) {
  const std::vector<std::uint8_t> y(5 * 3, 126);
  const std::vector<std::uint8_t> u{128, 168, 88, 98, 108, 118};
  const std::vector<std::uint8_t> v(6, 128);
  std::vector<std::uint8_t> pixels(4 * 5 * 3);
  expandToBgrx({y.data(), u.data(), v.data(), 5, 3, 3, 8, 1, 1}, YuvMatrix::bt709, false,
               {pixels.data(), 5, 3, 20, PixelFormat::bgrx8});
  for (std::int32_t row = 0; row < 3; ++row)
    for (std::int32_t column = 0; column < 5; ++column) {
      const double blue =
          exactOf(126, u[static_cast<std::size_t>(row / 2) * 3 + static_cast<std::size_t>(column / 2)], 128,
                  0.2126, 0.0722, false)
              .blue;
      EXPECT_NEAR(pixels[static_cast<std::size_t>(row) * 20 + static_cast<std::size_t>(column) * 4],
                  within(blue), 1)
          << row << ' ' << column;
    }
}

} // namespace
} // namespace tessarin::editing
