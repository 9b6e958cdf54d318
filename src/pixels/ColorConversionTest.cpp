#include "pixels/ColorConversion.hpp"
#include "pixels/Kernels.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace tessarin::pixels {
namespace {

struct Rgb {
  double r, g, b;
};

double luma(Rgb c) {
  return 0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b;
}
double exactY(Rgb c) {
  return 16 + 219 * luma(c) / 255;
}
double exactCb(Rgb c) {
  return 128 + 224 * (c.b - luma(c)) / 1.8556 / 255;
}
double exactCr(Rgb c) {
  return 128 + 224 * (c.r - luma(c)) / 1.5748 / 255;
}

Rgb meanOf(const PictureView& view, int x, int y, int size) {
  Rgb sum{0, 0, 0};
  for (int row = y; row < y + size; ++row)
    for (int column = x; column < x + size; ++column) {
      const std::uint8_t* pixel = view.data + row * view.stride + column * 4;
      sum = {sum.r + pixel[2], sum.g + pixel[1], sum.b + pixel[0]};
    }
  const double count = size * size;
  return {sum.r / count, sum.g / count, sum.b / count};
}

struct Planes {
  int width, height;
  std::ptrdiff_t stride;
  std::vector<std::uint8_t> bytes;

  Planes(int w, int h, int slack)
      : width(w), height(h), stride(w + slack), bytes(static_cast<std::size_t>(stride * h * 3), 0xEE) {}
  I420Planes planes() {
    return {bytes.data(), bytes.data() + stride * height, bytes.data() + 2 * stride * height, stride, stride,
            stride};
  }
};

struct Size {
  int width, height;
};
const Size sizes[] = {{2, 2},  {4, 2},  {2, 6},  {30, 4}, {32, 2},  {34, 8},
                      {62, 2}, {64, 4}, {66, 2}, {94, 6}, {318, 10}};

TEST(ColorConversion, yieldsTheRoundedValuesOfBt709ForEverySizeStrideAndOffset) {
  unsigned seed = 1;
  for (const Size size : sizes)
    for (const int offset : {0, 1, 3, 8}) {
      const TestPicture picture(size.width, size.height, offset, 4 * offset + 4, seed++);
      Planes planes(size.width, size.height, offset);
      convertToI420(picture.view(), planes.planes());
      const I420Planes out = planes.planes();
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
          const double exact = exactY(meanOf(picture.view(), x, y, 1));
          ASSERT_LE(std::abs(out.y[y * out.yStride + x] - exact), 0.512) << x << "," << y;
        }
      for (int y = 0; y < size.height; y += 2)
        for (int x = 0; x < size.width; x += 2) {
          const Rgb mean = meanOf(picture.view(), x, y, 2);
          ASSERT_LE(std::abs(out.u[y / 2 * out.uStride + x / 2] - exactCb(mean)), 0.512) << x << "," << y;
          ASSERT_LE(std::abs(out.v[y / 2 * out.vStride + x / 2] - exactCr(mean)), 0.512) << x << "," << y;
        }
    }
}

TEST(ColorConversion, writesNothingOutsideThePlanes) {
  const TestPicture picture(34, 4, 1, 8, 7);
  Planes planes(34, 4, 5);
  convertToI420(picture.view(), planes.planes());
  const I420Planes out = planes.planes();
  for (int y = 0; y < 4; ++y)
    for (int x = 34; x < 39; ++x)
      EXPECT_EQ(out.y[y * out.yStride + x], 0xEE);
  for (int y = 0; y < 2; ++y)
    for (int x = 17; x < 39; ++x) {
      EXPECT_EQ(out.u[y * out.uStride + x], 0xEE);
      EXPECT_EQ(out.v[y * out.vStride + x], 0xEE);
    }
}

TEST(ColorConversion, keepsTheCornersOfTheColorCube) {
  const struct {
    std::uint8_t b, g, r, y, cb, cr;
  } corners[] = {{0, 0, 0, 16, 128, 128},     {255, 255, 255, 235, 128, 128}, {0, 0, 255, 63, 102, 240},
                 {0, 255, 0, 173, 42, 26},    {255, 0, 0, 32, 240, 118},      {128, 128, 128, 126, 128, 128},
                 {0, 255, 255, 219, 16, 138}, {255, 255, 0, 188, 154, 16},    {255, 0, 255, 78, 214, 230}};
  for (const auto& corner : corners) {
    TestPicture picture(64, 2, 0, 0, 1);
    for (int i = 0; i < 128; ++i) {
      picture.pixel(i % 64, i / 64)[0] = corner.b;
      picture.pixel(i % 64, i / 64)[1] = corner.g;
      picture.pixel(i % 64, i / 64)[2] = corner.r;
    }
    Planes planes(64, 2, 0);
    convertToI420(picture.view(), planes.planes());
    for (const int x : {0, 31, 63}) {
      EXPECT_EQ(planes.planes().y[x], corner.y);
      EXPECT_EQ(planes.planes().u[x / 2], corner.cb);
      EXPECT_EQ(planes.planes().v[x / 2], corner.cr);
    }
  }
}

TEST(ColorConversion, interleavesTheSameChromaForNv12) {
  for (const int width : {2, 66, 1022, 1026, 2050}) {
    const TestPicture picture(width, 4, 1, 4, 3);
    Planes planes(width, 4, 2);
    convertToI420(picture.view(), planes.planes());
    std::vector<std::uint8_t> luma(static_cast<std::size_t>(width) * 4);
    std::vector<std::uint8_t> chroma(static_cast<std::size_t>(width) * 2);
    convertToNv12(picture.view(), {luma.data(), chroma.data(), width, width});
    const I420Planes expected = planes.planes();
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < width; ++x) {
        ASSERT_EQ(luma[static_cast<std::size_t>(y * width + x)], expected.y[y * expected.yStride + x]);
        const std::uint8_t* plane = x % 2 ? expected.v : expected.u;
        ASSERT_EQ(chroma[static_cast<std::size_t>(y / 2 * width + x)],
                  plane[y / 2 * expected.uStride + x / 2]);
      }
  }
}

TEST(Kernels, everyVersionConvertsToTheSameBytes) {
  const Kernels& plain = availableKernels().front();
  for (const Kernels& kernels : availableKernels())
    for (std::size_t pixels = 2; pixels <= 200; pixels += 2) {
      const TestPicture picture(static_cast<int>(pixels), 2, 3, 12, static_cast<unsigned>(pixels));
      std::vector<std::uint8_t> expected(pixels * 3);
      std::vector<std::uint8_t> actual(pixels * 3);
      const auto convert = [&](const Kernels& use, std::vector<std::uint8_t>& out) {
        use.convertRows(picture.pixel(0, 0), picture.pixel(0, 1), pixels, out.data(), out.data() + pixels,
                        out.data() + 2 * pixels, out.data() + 2 * pixels + pixels / 2);
      };
      convert(plain, expected);
      convert(kernels, actual);
      ASSERT_EQ(actual, expected) << kernels.name << " with " << pixels << " pixels";
    }
}

} // namespace
} // namespace tessarin::pixels
