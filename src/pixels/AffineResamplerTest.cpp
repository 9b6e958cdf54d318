#include "pixels/AffineResampler.hpp"
#include "pixels/PixelArea.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>
#include <vector>

namespace tessarin::pixels {
namespace {

// A channel of a pixel, or of what is beside the picture.
double channelAt(const PictureView& view, int x, int y, int channel, Edges edges) {
  if (edges == Edges::clamped) {
    x = std::clamp(x, 0, view.width - 1);
    y = std::clamp(y, 0, view.height - 1);
  } else if (x < 0 || y < 0 || x >= view.width || y >= view.height) {
    return 0;
  }
  if (channel == 3 && view.format == PixelFormat::bgrx8)
    return 255;
  return rowOf(view, y)[x * 4 + channel];
}

struct Weight {
  int pixel;
  double share;
};

// Pixels under the trapezoid, by sums over many small steps.
std::vector<Weight> weightsAt(double center, double scale) {
  const double wide = std::max(1 / std::abs(scale), 1.0);
  const double narrow = std::min(wide - 1, wide / 2);
  const double outer = (wide + narrow) / 2;
  const double inner = (wide - narrow) / 2;
  constexpr int steps = 400;
  std::vector<Weight> weights;
  double sum = 0;
  for (int pixel = static_cast<int>(std::floor(center - outer)); pixel <= center + outer; ++pixel) {
    double share = 0;
    for (int step = 0; step < steps; ++step) {
      const double distance = std::abs(pixel + (step + 0.5) / steps - center);
      share += distance <= inner ? 1 : distance >= outer ? 0 : (outer - distance) / (outer - inner);
    }
    weights.push_back({pixel, share});
    sum += share;
  }
  for (Weight& weight : weights)
    weight.share /= sum;
  return weights;
}

void expectUpright(const PictureView& source, const AffineTransform& placement, Edges edges,
                   const TestPicture& drawn, int width, int height) {
  std::vector<std::vector<Weight>> columnsOf;
  for (int x = 0; x < width; ++x)
    columnsOf.push_back(weightsAt((x + 0.5 - placement.tx) / placement.a, placement.a));
  for (int y = 0; y < height; ++y) {
    const auto lines = weightsAt((y + 0.5 - placement.ty) / placement.d, placement.d);
    for (int x = 0; x < width; ++x) {
      const auto& columns = columnsOf[static_cast<std::size_t>(x)];
      for (int channel = 0; channel < 4; ++channel) {
        double expected = 0;
        for (const Weight& line : lines)
          for (const Weight& column : columns)
            expected +=
                line.share * column.share * channelAt(source, column.pixel, line.pixel, channel, edges);
        ASSERT_NEAR(drawn.pixel(x, y)[channel], expected, 1)
            << placement.a << " " << placement.d << " at " << x << "," << y << ", " << channel;
      }
    }
  }
}

Canvas withAlpha(TestPicture& picture) {
  Canvas canvas = picture.canvas();
  canvas.format = PixelFormat::bgra8Premultiplied;
  return canvas;
}

constexpr Edges allEdges[] = {Edges::clamped, Edges::transparent};

TEST(AffineResampler, ScalesEachDirectionByItself) {
  AffineResampler resampler; // one for all, so that what it keeps is used again
  const AffineTransform placements[] = {
      {1.37, 0, 0, 2.6, -3.2, -7.7}, {0.25, 0, 0, 0.25, 2.6, 1.1}, {0.73, 0, 0, 0.41, 0, 0},
      {-1.5, 0, 0, 0.9, 20.3, 3},    {0.11, 0, 0, -3, 7.4, 30},    {1, 0, 0, 1, 0.5, -0.25},
      {0.999, 0, 0, 1.001, 0, 0},    {40, 0, 0, 40, -90, -200},    {0.01, 0, 0, 0.01, 9.3, 8.2},
  };
  for (const AffineTransform& placement : placements)
    for (const Edges edges : allEdges)
      for (const auto& [width, height] : {std::pair(23, 17), std::pair(2, 2), std::pair(1, 9)}) {
        TestPicture source(width, height, 1, 4, 101);
        TestPicture drawn(21, 19, 3, 4, 102);
        resampler.draw(source.view(), placement, edges, withAlpha(drawn));
        expectUpright(source.view(), placement, edges, drawn, 21, 19);
      }
}

TEST(AffineResampler, CopiesAtWholePixelsExactly) {
  AffineResampler resampler;
  const TestPicture source(9, 7, 1, 4, 103);
  for (const Edges edges : allEdges)
    for (const auto& [left, top] : {std::pair(0, 0), {3, 2}, {-4, -5}, {8, 6}, {-8, -6}, {2, -3}}) {
      TestPicture drawn(9, 7, 3, 8, 104);
      // What arithmetic adds makes no difference.
      resampler.draw(source.view(), {1, 1e-17, 0, 1 - 1e-12, left + 1e-9, top - 1e-9}, edges, drawn.canvas());
      for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
          const bool isInside = x >= left && y >= top && x < left + 9 && y < top + 7;
          const std::uint8_t nothing[4] = {};
          const std::uint8_t* expected = source.pixel(std::clamp(x - left, 0, 8), std::clamp(y - top, 0, 6));
          if (!isInside && edges == Edges::transparent)
            expected = nothing;
          ASSERT_TRUE(std::equal(expected, expected + 4, drawn.pixel(x, y))) << left << "," << top;
        }
    }
}

TEST(AffineResampler, TurnsAndMirrorsExactly) {
  const TestPicture source(9, 7, 1, 4, 105);
  const AffineTransform linear[] = {{1, 0, 0, 1, 0, 0},   {-1, 0, 0, 1, 0, 0}, {1, 0, 0, -1, 0, 0},
                                    {-1, 0, 0, -1, 0, 0}, {0, 1, 1, 0, 0, 0},  {0, -1, 1, 0, 0, 0},
                                    {0, 1, -1, 0, 0, 0},  {0, -1, -1, 0, 0, 0}};
  for (const AffineTransform& turn : linear)
    for (const auto& [x0, y0] : {std::pair(0, 0), {3, -2}, {-4, 1}}) {
      const RectDTO bounds = turn.boundsOf({0, 0, 9, 7});
      const AffineTransform placement =
          turn.followedBy(AffineTransform::translation(x0 - bounds.x, y0 - bounds.y));
      TestPicture drawn(10, 10, 3, 8, 106);
      AffineResampler().draw(source.view(), placement, Edges::transparent, drawn.canvas());
      int copied = 0;
      for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
          const double centerX = (x + 0.5) * placement.a + (y + 0.5) * placement.c + placement.tx;
          const double centerY = (x + 0.5) * placement.b + (y + 0.5) * placement.d + placement.ty;
          const int toX = static_cast<int>(std::floor(centerX));
          const int toY = static_cast<int>(std::floor(centerY));
          if (toX < 0 || toY < 0 || toX >= 10 || toY >= 10)
            continue;
          ++copied;
          ASSERT_TRUE(std::equal(source.pixel(x, y), source.pixel(x, y) + 4, drawn.pixel(toX, toY)));
        }
      int empty = 0;
      for (int i = 0; i < 100; ++i)
        empty += std::all_of(drawn.pixel(i % 10, i / 10), drawn.pixel(i % 10, i / 10) + 4,
                             [](std::uint8_t byte) { return byte == 0; })
                     ? 1
                     : 0;
      EXPECT_GE(empty, 100 - copied);
      EXPECT_GT(copied, 20);
    }
}

TEST(AffineResampler, TurnsWhatItScales) {
  const TestPicture source(9, 7, 1, 4, 107);
  TestPicture turned(7, 9, 0, 0, 108);
  orientPixels(source.view(), {.isTransposed = true, .isMirrored = true}, turned.canvas());
  TestPicture expected(20, 20, 0, 0, 109);
  TestPicture drawn(20, 20, 0, 0, 110);
  AffineResampler().draw(turned.view(), {1.7, 0, 0, 1.3, 0.4, 0.2}, Edges::clamped, expected.canvas());
  AffineResampler().draw(source.view(), {0, 1.3, -1.7, 0, 0.4 + 7 * 1.7, 0.2}, Edges::clamped,
                         drawn.canvas());
  EXPECT_EQ(drawn.bytes(), expected.bytes());
}

TEST(AffineResampler, InterpolatesAtAnyAngle) {
  for (const double degrees : {1.0, 30.0, 45.0, 200.0})
    for (const Edges edges : allEdges) {
      const double angle = degrees * std::numbers::pi / 180;
      const double s = std::sin(angle);
      const double c = std::cos(angle);
      const AffineTransform placement{1.3 * c, 1.3 * s, -1.6 * s, 1.6 * c, 9.1, 4.4};
      TestPicture source(15, 11, 1, 4, 111);
      TestPicture drawn(24, 22, 3, 8, 112);
      AffineResampler().draw(source.view(), placement, edges, withAlpha(drawn));
      const double determinant = placement.a * placement.d - placement.b * placement.c;
      for (int y = 0; y < 22; ++y)
        for (int x = 0; x < 24; ++x) {
          const double dx = x + 0.5 - placement.tx;
          const double dy = y + 0.5 - placement.ty;
          const double u = (placement.d * dx - placement.c * dy) / determinant - 0.5;
          const double v = (placement.a * dy - placement.b * dx) / determinant - 0.5;
          const int left = static_cast<int>(std::floor(u));
          const int top = static_cast<int>(std::floor(v));
          for (int channel = 0; channel < 4; ++channel) {
            const auto at = [&](int column, int line) {
              return channelAt(source.view(), column, line, channel, edges);
            };
            const double upper = std::lerp(at(left, top), at(left + 1, top), u - left);
            const double lower = std::lerp(at(left, top + 1), at(left + 1, top + 1), u - left);
            ASSERT_NEAR(drawn.pixel(x, y)[channel], std::lerp(upper, lower, v - top), 1)
                << degrees << " at " << x << "," << y;
          }
        }
    }
}

// Stripes of black and white, so many pixels to each.
TestPicture stripes(int side, int black, int white) {
  TestPicture picture(side, side, 0, 0, 113);
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x)
      std::fill_n(picture.pixel(x, y), 4,
                  std::uint8_t{x % (black + white) < black ? std::uint8_t{0} : std::uint8_t{255}});
  return picture;
}

double contrastOf(const TestPicture& picture, int side) {
  int least = 255;
  int most = 0;
  for (int y = side / 4; y < side * 3 / 4; ++y)
    for (int x = side / 4; x < side * 3 / 4; ++x) {
      least = std::min<int>(least, picture.pixel(x, y)[0]);
      most = std::max<int>(most, picture.pixel(x, y)[0]);
    }
  return (most - least) / 255.0;
}

TEST(AffineResampler, ShowsNoStripesThatTheTargetHasNoRoomFor) {
  struct {
    int black, white;
    double most;
  } const all[] = {{1, 1, 0.005}, {2, 2, 0.005}, {1, 2, 0.1}, {2, 3, 0.2}};
  for (const auto& each : all) {
    const TestPicture source = stripes(240, each.black, each.white);
    TestPicture drawn(60, 60, 0, 0, 114);
    AffineResampler().draw(source.view(), {0.25, 0, 0, 0.25, 0, 0}, Edges::clamped, drawn.canvas());
    EXPECT_LE(contrastOf(drawn, 60), each.most) << each.black << " and " << each.white;
    // At an angle as well.
    AffineResampler().draw(source.view(), {0.24, 0.07, -0.07, 0.24, 7, 0}, Edges::clamped, drawn.canvas());
    EXPECT_LE(contrastOf(drawn, 60), each.most + 0.02) << each.black << " and " << each.white;
  }
}

TEST(AffineResampler, MovesNothingByScaling) {
  TestPicture ramp(64, 64, 0, 0, 115);
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      std::fill_n(ramp.pixel(x, y), 4, static_cast<std::uint8_t>(3 * x + 20));
      ramp.pixel(x, y)[1] = static_cast<std::uint8_t>(3 * y + 20);
    }
  for (const double scale : {0.25, 0.4, 0.5, 0.9, 1.1, 2.0, 3.7}) {
    TestPicture drawn(64, 64, 0, 0, 116);
    const double offset = 32 - 32 * scale;
    AffineResampler().draw(ramp.view(), {scale, 0, 0, scale, offset, offset}, Edges::clamped, drawn.canvas());
    for (int at = 30; at < 34; ++at) {
      const double expected = 3 * ((at + 0.5 - offset) / scale - 0.5) + 20;
      EXPECT_NEAR(drawn.pixel(at, 32)[0], expected, 0.6) << scale;
      EXPECT_NEAR(drawn.pixel(32, at)[1], expected, 0.6) << scale;
    }
  }
}

TEST(AffineResampler, GivesOpaquePicturesAnAlphaThatNoChannelExceeds) {
  const TestPicture source(13, 11, 1, 4, 117); // has any fourth bytes
  for (const AffineTransform& placement :
       {AffineTransform{1, 0, 0, 1, 0, 0}, AffineTransform{1, 0, 0, 1, 4, 2},
        AffineTransform{0.6, 0, 0, 1.7, 2.3, 1.2}, AffineTransform{0, 0.8, 0.9, 0, 1.5, 2.5},
        AffineTransform{0.9, 0.3, -0.3, 0.9, 4, 1}}) {
    TestPicture clamped(20, 20, 0, 0, 118);
    AffineResampler().draw(source.view(), placement, Edges::clamped, withAlpha(clamped));
    TestPicture cut(20, 20, 0, 0, 119);
    AffineResampler().draw(source.view(), placement, Edges::transparent, withAlpha(cut));
    for (int y = 0; y < 20; ++y)
      for (int x = 0; x < 20; ++x) {
        EXPECT_EQ(clamped.pixel(x, y)[3], 255);
        EXPECT_LE(*std::max_element(cut.pixel(x, y), cut.pixel(x, y) + 3), cut.pixel(x, y)[3]);
      }
    EXPECT_EQ(cut.pixel(19, 19)[3], 0);
    EXPECT_EQ(cut.pixel(5, 5)[3], 255);
  }
}

TEST(AffineResampler, DrawsNothingThatIsFlat) {
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  for (const AffineTransform& placement :
       {AffineTransform{0, 0, 0, 1, 0, 0}, AffineTransform{1, 1, 1, 1, 0, 0},
        AffineTransform{1, 0, 0, 1, notANumber, 0}, AffineTransform{notANumber, 0, 0, 1, 0, 0},
        AffineTransform{1, 0, 0, 1, 0, std::numeric_limits<double>::infinity()}}) {
    const TestPicture source(5, 5, 0, 0, 120);
    TestPicture drawn(4, 4, 0, 0, 121);
    AffineResampler().draw(source.view(), placement, Edges::clamped, drawn.canvas());
    EXPECT_EQ(drawn.bytes(), std::vector<std::uint8_t>(4 * 4 * 4, 0));
  }
}

// Nothing is read or written beyond the pictures, however they are placed; sanitizers see the reading.
TEST(AffineResampler, StaysWithinThePictures) {
  AffineResampler resampler;
  for (const double scale : {1e-6, 0.001, 0.03, 1.0, 900.0, 1e7})
    for (const double offset : {0.0, -1e4, 1e12, 0.3})
      for (const double slant : {0.0, 0.01, 5.0})
        for (const Edges edges : allEdges)
          for (const auto& [width, height] :
               {std::pair(1, 1), std::pair(2, 2), std::pair(7680, 2), std::pair(2, 7680)}) {
            const TestPicture source(width, height, 0, 0, 122);
            TestPicture drawn(5, 3, 4, 12, 123);
            const TestPicture before(5, 3, 4, 12, 123);
            resampler.draw(source.view(), {scale, scale * slant, -scale * slant, scale, offset, -offset},
                           edges, drawn.canvas());
            for (int y = 0; y < 3; ++y)
              ASSERT_TRUE(
                  std::equal(drawn.pixel(5, y), drawn.pixel(5, y) + (y < 2 ? 12 : 0), before.pixel(5, y)));
          }
}

TEST(AffineResampler, CoversARectangleFromItsCentre) {
  EXPECT_EQ(coveringPlacement(100, 50, {10, 20, 100, 100}), (AffineTransform{2, 0, 0, 2, -40, 20}));
  EXPECT_EQ(coveringPlacement(50, 100, {10.5, 20, 100, 100}), (AffineTransform{2, 0, 0, 2, 10.5, -30}));
  EXPECT_EQ(coveringPlacement(8, 8, {1.25, 2, 2, 2}), (AffineTransform{0.25, 0, 0, 0.25, 1.25, 2}));
}

TEST(PixelArea, TouchesEveryPixelThatARectangleHasAPartOf) {
  EXPECT_EQ(touchedPixels({1.2, 2.5, 3, 1}, 10, 10), (PixelArea{1, 2, 5, 4}));
  EXPECT_EQ(touchedPixels({1, 2, 3, 1}, 10, 10), (PixelArea{1, 2, 4, 3}));
  EXPECT_EQ(touchedPixels({1 - 1e-9, 2, 3 + 2e-9, 1}, 10, 10), (PixelArea{1, 2, 4, 3}));
  EXPECT_EQ(touchedPixels({-5, -1e300, 1e300, 2e300}, 10, 8), (PixelArea{0, 0, 10, 8}));
  for (const RectDTO& rect :
       {RectDTO{20, 2, 3, 3}, RectDTO{-5, 2, 3, 3}, RectDTO{2, 2, 0, 3}, RectDTO{2, 2, 3, -1},
        RectDTO{2, std::numeric_limits<double>::quiet_NaN(), 3, 3}})
    EXPECT_TRUE(touchedPixels(rect, 10, 10).isEmpty());
}

} // namespace
} // namespace tessarin::pixels
