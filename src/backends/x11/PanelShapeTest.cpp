#include "backends/x11/PanelShape.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace tessarin::x11 {
namespace {

// AARRGGBB.
std::uint32_t pixelAt(const std::vector<std::uint8_t>& pixels, std::size_t index) {
  std::uint32_t value = 0;
  std::memcpy(&value, pixels.data() + index * 4, 4);
  return value;
}

struct Shown {
  std::vector<PixelRect> shape;
  std::vector<std::uint8_t> pixels;
};

PictureView viewOf(const std::vector<std::uint32_t>& values, std::int32_t width) {
  const auto height = static_cast<std::int32_t>(values.size()) / width;
  return {reinterpret_cast<const std::uint8_t*>(values.data()), width, height, std::ptrdiff_t{width} * 4,
          PixelFormat::bgra8Premultiplied};
}

Shown shown(const std::vector<std::uint32_t>& values, std::int32_t width) {
  Shown result{{}, std::vector<std::uint8_t>(values.size() * 4, 0xEE)};
  copyOpaquePicture(viewOf(values, width), result.pixels.data());
  result.shape = opaqueShape(viewOf(values, width));
  return result;
}

TEST(PanelPixels, AreTheWholePixelsThatTheFrameTouches) {
  struct Row {
    RectDTO frame;
    double scale;
    PixelRect pixels;
  };
  for (const auto& each : {
           Row{{10, 20, 30, 40}, 1, {10, 20, 30, 40}},
           Row{{10.5, 20.25, 30, 40}, 1, {10, 20, 31, 41}},
           Row{{10.5, 20.25, 30, 40}, 2, {21, 40, 60, 81}},
           Row{{-10.5, -0.5, 1, 1}, 1, {-11, -1, 2, 2}},
           Row{{100.0 / 3, 0, 10, 10}, 1.5, {50, 0, 15, 15}}, // 50 but for the rounding of the product
           Row{{0.1, 0.2, 0.7, 0.1}, 10, {1, 2, 7, 1}},
           Row{{5, 5, 0.001, 0.001}, 1, {5, 5, 1, 1}},
           Row{{5, 5, 0, 10}, 1, {}},
           Row{{5, 5, 10, 0}, 1, {}},
           Row{{5, 5, -3, 10}, 1, {}},
           Row{{-1e9, 0, 2e9, 10}, 1, {-32768, 0, 32767, 10}},
           Row{{1e300, 0, 10, 10}, 4, {}},
           Row{{std::nan(""), 0, 10, 10}, 1, {}},
           Row{{0, 0, std::numeric_limits<double>::infinity(), 10}, 1, {}},
       }) {
    EXPECT_EQ(panelPixels(each.frame, each.scale), each.pixels)
        << each.frame.x << " " << each.frame.width << " " << each.scale;
  }
}

TEST(PanelShape, PixelsOfHalfAnAlphaAreShownOpaqueAndOthersNot) {
  const auto result = shown({0xFF102030, 0x80400000, 0x7F7F7F7F, 0x00000000, 0x80808080}, 5);
  EXPECT_EQ(result.shape, (std::vector<PixelRect>{{0, 0, 2, 1}, {4, 0, 1, 1}}));
  EXPECT_EQ(pixelAt(result.pixels, 0), 0xFF102030U);
  EXPECT_EQ(pixelAt(result.pixels, 1), 0xFF800000U); // 64 of 128
  EXPECT_EQ(pixelAt(result.pixels, 2), 0U);
  EXPECT_EQ(pixelAt(result.pixels, 3), 0U);
  EXPECT_EQ(pixelAt(result.pixels, 4), 0xFFFFFFFFU);
}

TEST(PanelShape, AColourBrighterThanItsAlphaIsAsBrightAsCanBe) {
  EXPECT_EQ(pixelAt(shown({0x80FF0080}, 1).pixels, 0), 0xFFFF00FFU);
}

TEST(PanelShape, LikeRowsAreOneBand) {
  constexpr std::uint32_t o = 0xFF010203;
  const auto result = shown({o, 0, o, //
                             o, 0, o, //
                             o, o, o, //
                             0, 0, 0, //
                             0, 0, 0, //
                             o, o, o},
                            3);
  EXPECT_EQ(result.shape, (std::vector<PixelRect>{{0, 0, 1, 2}, {2, 0, 1, 2}, {0, 2, 3, 1}, {0, 5, 3, 1}}));
}

TEST(PanelShape, IsTheSameWhereverTheEdgesLie) {
  // A plain computation, pixel by pixel, over widths around those that are taken together.
  for (std::int32_t width = 1; width <= 50; ++width) {
    std::vector<std::uint32_t> values;
    for (std::int32_t x = 0; x < width; ++x)
      values.push_back(x < width / 3 ? 0xFF000000U + static_cast<std::uint32_t>(x)
                                     : (x * 7 % 11 < 5 ? 0x90102030U : 0x10010101U));
    const auto result = shown(values, width);
    std::int32_t area = 0;
    for (const auto& each : result.shape)
      area += each.width * each.height;
    std::int32_t expected = 0;
    for (std::int32_t x = 0; x < width; ++x) {
      const bool isShown = values[static_cast<std::size_t>(x)] >> 24 >= 128;
      expected += isShown ? 1 : 0;
      EXPECT_EQ(pixelAt(result.pixels, static_cast<std::size_t>(x)) != 0, isShown) << width << " " << x;
      EXPECT_EQ(std::any_of(result.shape.begin(), result.shape.end(),
                            [x](const PixelRect& each) { return each.x <= x && x < each.right(); }),
                isShown);
    }
    EXPECT_EQ(area, expected);
  }
}

TEST(PanelShape, RowsAreTakenByTheirStride) {
  const std::vector<std::uint32_t> values{0xFF000001, 0xFFAAAAAA, 0xFF000002, 0xFFAAAAAA};
  PictureView view = viewOf(values, 2);
  view.width = 1;
  std::vector<std::uint8_t> pixels(8);
  EXPECT_EQ(opaqueShape(view), (std::vector<PixelRect>{{0, 0, 1, 2}}));
  copyOpaquePicture(view, pixels.data());
  EXPECT_EQ(pixelAt(pixels, 0), 0xFF000001U);
  EXPECT_EQ(pixelAt(pixels, 1), 0xFF000002U);
  std::fill(pixels.begin(), pixels.end(), 0);
  copyPicture(view, pixels.data());
  EXPECT_EQ(pixelAt(pixels, 0), 0xFF000001U);
  EXPECT_EQ(pixelAt(pixels, 1), 0xFF000002U);
}

TEST(PanelShape, IsClippedToASize) {
  EXPECT_EQ(clipped({{0, 0, 10, 10}, {12, 0, 5, 5}, {0, 8, 3, 9}}, 12, 9),
            (std::vector<PixelRect>{{0, 0, 10, 9}, {0, 8, 3, 1}}));
}

} // namespace
} // namespace tessarin::x11
