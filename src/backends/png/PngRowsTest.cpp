#include "backends/png/PngRows.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace tessarin::png {
namespace {

using testing::ElementsAre;

constexpr std::array filters = {RowFilter::left, RowFilter::above, RowFilter::average};

// Pixels of which many are wholly opaque or clear, as in a window's picture.
std::vector<std::uint8_t> pixelsOf(std::size_t width, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<std::uint8_t> pixels(4 * width);
  for (auto& byte : pixels)
    byte = static_cast<std::uint8_t>(random());
  for (std::size_t x = 0; x < width; ++x)
    if (const auto kind = random() % 8; kind > 0)
      pixels[4 * x + 3] = kind > 3 ? 255 : 0;
  return pixels;
}

TEST(PngRows, TheWideAndThePlainRowAreTheSameAtEveryWidth) {
  for (const PixelFormat format : {PixelFormat::bgrx8, PixelFormat::bgra8Premultiplied})
    for (const RowFilter filter : filters)
      for (const bool isTopmost : {false, true})
        for (std::size_t width = 1; width <= 70; ++width) {
          const auto pixels = pixelsOf(width, 1);
          const auto above = pixelsOf(width, 2);
          const SourceRow row{pixels.data(), isTopmost ? nullptr : above.data(), format, width};
          constexpr std::uint8_t untouched = 0xA5;
          std::vector<std::uint8_t> chosen(bytesPerPixel(format) * width + 1, untouched);
          std::vector<std::uint8_t> plain = chosen;
          filterRow(row, filter, chosen.data());
          filterRowPortably(row, filter, plain.data());
          ASSERT_EQ(chosen, plain) << width;
          ASSERT_EQ(chosen.back(), untouched) << width;
        }
}

std::vector<std::uint8_t> filtered(const SourceRow& row, RowFilter filter) {
  std::vector<std::uint8_t> samples(bytesPerPixel(row.format) * row.width);
  filterRow(row, filter, samples.data());
  return samples;
}

TEST(PngRows, SamplesAreToldLessTheirNeighbours) {
  const std::vector<std::uint8_t> above = {1, 2, 3, 99, 255, 20, 10, 99};
  const std::vector<std::uint8_t> pixels = {30, 20, 10, 99, 32, 10, 11, 99}; // blue, green, red, unused
  const SourceRow row{pixels.data(), above.data(), PixelFormat::bgrx8, 2};
  EXPECT_THAT(filtered(row, RowFilter::left), ElementsAre(10, 20, 30, 1, 246, 2));
  EXPECT_THAT(filtered(row, RowFilter::above), ElementsAre(7, 18, 29, 1, 246, 33));
  // The means are 1, 1, 0 and then 10, 20, 142, rounded down.
  EXPECT_THAT(filtered(row, RowFilter::average), ElementsAre(9, 19, 30, 1, 246, 146));
}

TEST(PngRows, AboveTheTopmostRowIsNothing) {
  const std::vector<std::uint8_t> pixels = {30, 20, 11, 99};
  const SourceRow row{pixels.data(), nullptr, PixelFormat::bgrx8, 1};
  EXPECT_THAT(filtered(row, RowFilter::above), ElementsAre(11, 20, 30));
  EXPECT_THAT(filtered(row, RowFilter::average), ElementsAre(11, 20, 30));
}

TEST(PngRows, MagnitudeTakesBytesAsSigned) {
  constexpr std::array<std::uint8_t, 6> bytes = {0, 1, 127, 128, 255, 77};
  EXPECT_EQ(magnitude(bytes.data(), 5), 0U + 1 + 127 + 128 + 1);
}

} // namespace
} // namespace tessarin::png
