#include "pixels/Kernels.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace tessarin::pixels {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::int16_t>;

constexpr std::size_t lengths = 70;

// Has each version write into what `seed` makes, and expects the same of all.
template<class Buffer, class Write>
void expectOneResult(const Buffer& seed, const Write& write, const std::string& what) {
  Buffer expected;
  for (const Kernels& kernels : availableKernels()) {
    Buffer made = seed;
    write(kernels, made.data());
    if (expected.empty())
      expected = made;
    ASSERT_EQ(made, expected) << kernels.name << ": " << what;
  }
}

Words noiseWords(std::size_t count, unsigned seed) {
  std::minstd_rand random(seed);
  Words words(count);
  std::generate(words.begin(), words.end(), [&] {
    const auto value = random() >> 8;
    return static_cast<std::int16_t>(value % 7 == 0 ? 32640 : value % 32641);
  });
  return words;
}

TEST(Kernels, everyVersionBlendsMaskedPixelsToTheSameBytes) {
  for (std::size_t pixels = 0; pixels <= lengths; ++pixels)
    for (const bool isOpaque : {false, true})
      for (const bool keepsFourth : {false, true}) {
        const TestPicture source(static_cast<int>(pixels), 1, 1, 4, 51);
        const TestPicture below(static_cast<int>(pixels), 1, 3, 4, 52);
        Bytes weights(pixels);
        for (std::size_t x = 0; x < pixels; ++x)
          weights[x] = static_cast<std::uint8_t>(x * 37);
        expectOneResult(
            Bytes(below.pixel(0, 0), below.pixel(0, 0) + pixels * 4 + 1),
            [&](const Kernels& kernels, std::uint8_t* target) {
              kernels.blendMaskedRow(source.pixel(0, 0), weights.data(), target, pixels, isOpaque,
                                     keepsFourth);
            },
            std::to_string(pixels));
      }
}

TEST(Kernels, everyVersionCombinesWordsToTheSameAndRightOnes) {
  const Words weights[] = {{16384, 0}, {8192, 8192}, {1, 2, 16380, 1}, {100, 6000, 6000, 4000, 284, 0}};
  for (const Words& taps : weights)
    for (std::size_t words = 0; words <= lengths; ++words) {
      std::vector<Words> rows;
      std::vector<const std::int16_t*> pointers;
      for (std::size_t row = 0; row < taps.size(); ++row)
        rows.push_back(noiseWords(words + 1, static_cast<unsigned>(60 + row)));
      pointers.reserve(rows.size());
      for (const Words& row : rows)
        pointers.push_back(row.data() + 1);
      expectOneResult(
          Words(words + 1, 77),
          [&](const Kernels& kernels, std::int16_t* target) {
            kernels.combineWords(pointers.data(), taps.data(), taps.size(), words, target);
            for (std::size_t x = 0; x < words; ++x) {
              double sum = 0;
              for (std::size_t row = 0; row < taps.size(); ++row)
                sum += rows[row][x + 1] * taps[row] / 16384.0;
              ASSERT_EQ(target[x], std::floor(sum + 0.5)) << kernels.name;
            }
          },
          std::to_string(words));
      expectOneResult(
          Bytes(words + 1, 77),
          [&](const Kernels& kernels, std::uint8_t* target) {
            kernels.combineWordsToBytes(pointers.data(), taps.data(), taps.size(), words, target);
            for (std::size_t x = 0; x < words; ++x) {
              double sum = 0;
              for (std::size_t row = 0; row < taps.size(); ++row)
                sum += rows[row][x + 1] * taps[row] / 16384.0 / 128;
              ASSERT_EQ(target[x], std::floor(sum + 0.5)) << kernels.name;
            }
          },
          std::to_string(words));
    }
}

TEST(Kernels, everyVersionResamplesWordsToTheSameAndRightOnes) {
  const Words words = noiseWords(40 * 4, 71);
  const Words weights = {16384, 0,    0, 0, 1, 16383, 0,    0, 4096, 4096,
                         4096,  4096, 0, 1, 2, 16381, 9000, 0, 0,    384};
  const std::vector<std::int32_t> first{0, 3, 3, 20, 36};
  expectOneResult(
      Words(first.size() * 4 + 1, 77),
      [&](const Kernels& kernels, std::int16_t* target) {
        kernels.resampleWords(words.data(), {first, weights, 4}, target);
        for (std::size_t i = 0; i < first.size() * 4; ++i) {
          double sum = 0;
          for (std::size_t tap = 0; tap < 4; ++tap)
            sum +=
                words[(static_cast<std::size_t>(first[i / 4]) + tap) * 4 + i % 4] * weights[i / 4 * 4 + tap];
          ASSERT_EQ(target[i], std::floor(sum / 16384 + 0.5)) << kernels.name;
        }
      },
      "words");
}

TEST(Kernels, everyVersionAddsRows) {
  for (std::size_t bytes = 0; bytes <= lengths; ++bytes) {
    const TestPicture row(static_cast<int>(bytes / 4 + 1), 1, 1, 0, 72);
    expectOneResult(
        std::vector<std::uint32_t>(bytes + 1, 4'000'000'000U),
        [&](const Kernels& kernels, std::uint32_t* sums) {
          kernels.addRow(row.pixel(0, 0), bytes, sums);
          for (std::size_t i = 0; i < bytes; ++i)
            ASSERT_EQ(sums[i], 4'000'000'000U + row.pixel(0, 0)[i]) << kernels.name;
        },
        std::to_string(bytes));
  }
}

TEST(Kernels, everyVersionSamplesTheSamePixels) {
  constexpr std::int64_t one = std::int64_t{1} << 32;
  const TestPicture source(9, 7, 3, 5, 73);
  for (const bool isClamped : {false, true})
    for (const bool isOpaque : {false, true})
      for (const std::int64_t step : {one, one / 3, -one * 2 / 7, std::int64_t{0}}) {
        SampledLine line;
        line.source = source.view().data;
        line.stride = source.view().stride;
        line.width = 9;
        line.height = 7;
        line.x = step < 0 ? 11 * one : -3 * one - one / 5;
        line.y = step < 0 ? -2 * one : 6 * one + one / 7;
        line.stepX = step;
        line.stepY = -step / 2;
        line.isOpaque = isOpaque;
        line.isClamped = isClamped;
        expectOneResult(
            Bytes(lengths * 4 + 1, 77),
            [&](const Kernels& kernels, std::uint8_t* target) { kernels.sampleRow(line, lengths, target); },
            std::to_string(step));
      }
}

TEST(Kernels, everyVersionDrawsTheSameGradient) {
  const GradientLine line{{-20.3F, 255, 300.5F, 17},
                          {3.7F, 0, -8.25F, 0.013F},
                          {0, 255, 3, 17},
                          {255, 255, 250.6F, 17.3F},
                          {0.0078125F, 0.5F, 0.25F, 0.75F, 0.9921875F, 0.125F, 0.625F, 0.375F}};
  for (std::size_t pixels = 0; pixels <= lengths; ++pixels)
    expectOneResult(
        Bytes(pixels * 4 + 1, 77),
        [&](const Kernels& kernels, std::uint8_t* target) { kernels.gradientRow(line, pixels, target); },
        std::to_string(pixels));
}

TEST(Kernels, everyVersionTransposesAndReverses) {
  for (int width = 1; width <= 21; ++width)
    for (const int height : {1, 3, 4, 5, 16, 19, 33}) {
      const TestPicture source(width, height, 1, 8, 74);
      expectOneResult(
          Bytes(static_cast<std::size_t>(width * (height * 4 + 4)) + 1, 77),
          [&](const Kernels& kernels, std::uint8_t* target) {
            const std::ptrdiff_t stride = height * 4 + 4;
            kernels.transpose(source.view().data, source.view().stride, static_cast<std::size_t>(width),
                              static_cast<std::size_t>(height), target, stride);
            for (int y = 0; y < height; ++y)
              for (int x = 0; x < width; ++x)
                ASSERT_EQ(std::memcmp(target + x * stride + y * 4, source.pixel(x, y), 4), 0) << kernels.name;
          },
          std::to_string(width));
      expectOneResult(
          Bytes(static_cast<std::size_t>(width) * 4 + 1, 77),
          [&](const Kernels& kernels, std::uint8_t* target) {
            kernels.reverseRow(source.pixel(0, 0), static_cast<std::size_t>(width), target);
            for (int x = 0; x < width; ++x)
              ASSERT_EQ(std::memcmp(target + x * 4, source.pixel(width - 1 - x, 0), 4), 0) << kernels.name;
          },
          std::to_string(width));
    }
}

} // namespace
} // namespace tessarin::pixels
