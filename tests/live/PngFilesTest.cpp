#include "backends/png/PngFileWriter.hpp"
#include "program/PngReaders.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

// The program's files in the eyes of programs of others, pixel by pixel.
namespace tessarin {
namespace {

struct Size {
  int width;
  int height;
};

// What needs different ways of compression, in bands that no strip's edge coincides with: lines of a few
// colours, smooth colours with grain, one colour, and noise.
std::vector<std::uint32_t> paintedPixels(Size size) {
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(size.width) *
                                    static_cast<std::size_t>(size.height));
  std::mt19937 random(11);
  std::size_t next = 0;
  for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(size.height); ++y)
    for (std::uint32_t x = 0; x < static_cast<std::uint32_t>(size.width); ++x, ++next) {
      const std::uint32_t grain = random();
      const std::array<std::uint32_t, 4> kinds = {0xFF202428U + (x * x / 7 % 5 == 0 ? 0x00604020U : 0U),
                                                  0xFF000000U | (x / 9 + grain % 8) % 256 |
                                                      (y / 5 + grain % 8) % 256 << 8U |
                                                      ((x + y) / 11 + grain % 8) % 256 << 16U,
                                                  0xFF3366CCU, 0xFF000000U | grain >> 8U};
      pixels[next] = kinds[y / 41 % kinds.size()];
    }
  return pixels;
}

std::vector<std::uint8_t> rgbaOf(const std::vector<std::uint32_t>& pixels) {
  std::vector<std::uint8_t> rgba(4 * pixels.size());
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const std::uint32_t pixel = pixels[i];
    const std::uint32_t swapped =
        (pixel & 0xFF00FF00U) | (pixel & 0xFFU) << 16U | (pixel >> 16U & 0xFFU); // R, G, B, A in memory
    std::memcpy(rgba.data() + 4 * i, &swapped, sizeof swapped);
  }
  return rgba;
}

void expectReadByAll(Size size, PixelFormat format) {
  const TemporaryDirectory directory;
  const std::string path = directory / "picture.png";
  std::vector<std::uint32_t> pixels = paintedPixels(size);
  png::PngFileWriter(machineFileSystem())
      .write({reinterpret_cast<const std::uint8_t*>(pixels.data()), size.width, size.height,
              std::ptrdiff_t{4} * size.width, format},
             path);
  EXPECT_TRUE(readByAll(path).rgba == rgbaOf(pixels)) << size.width << "x" << size.height;
}

class PngFiles : public ::testing::TestWithParam<Size> {};

TEST_P(PngFiles, AreReadExactlyByOthers) {
  expectReadByAll(GetParam(), PixelFormat::bgrx8);
  expectReadByAll(GetParam(), PixelFormat::bgra8Premultiplied);
}

// Below and above what makes a second strip, at 3 and 4 bytes a pixel, and the usual screens.
INSTANTIATE_TEST_SUITE_P(
    Sizes, PngFiles,
    ::testing::Values(Size{1, 1}, Size{1, 2}, Size{2, 1}, Size{3, 7}, Size{1, 7680}, Size{7680, 1},
                      Size{333, 77}, Size{1000, 262}, Size{1000, 263}, Size{1000, 349}, Size{1000, 350},
                      Size{1919, 1079}, Size{1920, 1080}, Size{2561, 1441}, Size{3840, 2160}),
    [](const auto& each) {
      return std::to_string(each.param.width).append("x").append(std::to_string(each.param.height));
    });

TEST(LargePngFiles, OfTheLargestScreensAreReadExactlyByOthers) {
  expectReadByAll({7680, 7680}, PixelFormat::bgrx8);
}

} // namespace
} // namespace tessarin
