#include "presentation/CameraPictures.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

namespace tessarin {
namespace {

using namespace camera_pictures;
using Shape = VideoCameraShapeDTO;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

struct Placement {
  NormalizedVideoRectDTO rect;
  SizeDTO canvas;
  int x, y, width, height;
};

const Placement placements[] = {
    {{0, 0, 1, 1}, {384, 288}, 0, 0, 384, 288},
    // Fractions of what lies on whole pixels make whole pixels again.
    {{1512 / 1920.0, 768 / 1080.0, 384 / 1920.0, 288 / 1080.0}, {1920, 1080}, 1512, 768, 384, 288},
    {{7 / 19.0, 3 / 11.0, 5 / 19.0, 4 / 11.0}, {19, 11}, 7, 3, 5, 4},
    // From the top left, and every pixel that is touched.
    {{0.25, 0.5, 0.5, 0.25}, {100, 200}, 25, 100, 50, 50},
    {{0.255, 0.5, 0.5, 0.253}, {100, 100}, 25, 50, 51, 26},
    {{0.0011, 0, 0.9978, 1}, {1000, 10}, 1, 0, 998, 10},
    // Beyond the canvas: it is the rectangle that counts.
    {{-0.1, 0.9, 0.3, 0.4}, {100, 100}, -10, 90, 30, 40},
    {{-1.205, -2, 0.5, 0.5}, {100, 100}, -121, -200, 51, 50},
    {{5, 7, 0.5, 0.5}, {100, 100}, 500, 700, 50, 50},
    {{0, 0, 16384, 1}, {1, 1}, 0, 0, 16384, 1},
    {{0, 0, 1, 16384}, {1, 1}, 0, 0, 1, 16384},
};

TEST(CameraPresentationRenderer, PlacesThePictureOnThePixelsOfItsRectangle) {
  const Frame frame(8, 6, red);
  CameraPresentationRenderer renderer;
  for (const Placement& placement : placements) {
    const PlacedPicture image =
        renderer.image(frame.view(), layerOf(Shape::rectangle, placement.rect), placement.canvas);
    EXPECT_EQ(image.x, placement.x);
    EXPECT_EQ(image.y, placement.y);
    EXPECT_EQ(image.picture.view.width, placement.width);
    EXPECT_EQ(image.picture.view.height, placement.height);
    EXPECT_EQ(image.picture.view.format, PixelFormat::bgra8Premultiplied);
    const Pixel middle = pixelAt(image.picture.view, placement.width / 2, placement.height / 2);
    EXPECT_EQ(middle, red) << placement.x << "," << placement.y;
  }
}

TEST(CameraPresentationRenderer, DrawsNothingWhereThereIsNothing) {
  const Frame frame(8, 6, red);
  CameraPresentationRenderer renderer;
  const NormalizedVideoRectDTO rects[] = {
      {0, 0, 0, 1},        {0, 0, 1, 0},        {0.5, 0.5, -0.1, 0.5}, {0.5, 0.5, 0.5, -0.1},
      {nan, 0, 1, 1},      {0, nan, 1, 1},      {0, 0, nan, 1},        {0, 0, 1, nan},
      {infinity, 0, 1, 1}, {0, 0, infinity, 1}, {-infinity, 0, 1, 1},  {0, -infinity, 1, infinity},
      {1e300, 0, 1, 1},    {0, 0, 1e300, 1},    {0, 0, 164, 1},        {0, 0, 1, 164},
      {3e7, 0, 1, 1},      {0, 0, 1e-7, 1}};
  for (const NormalizedVideoRectDTO& rect : rects)
    for (const Shape shape : {Shape::rounded, Shape::circle, Shape::rectangle}) {
      const PlacedPicture image = renderer.image(frame.view(), bordered(layerOf(shape, rect)), {100, 100});
      EXPECT_EQ(image.picture.view.data, nullptr) << rect.x << "," << rect.y << " " << rect.width;
      EXPECT_EQ(image.picture.view.width, 0);
    }
  for (const SizeDTO& canvas : {SizeDTO{0, 100}, SizeDTO{100, 0}, SizeDTO{-100, 100}, SizeDTO{-5, -5}})
    EXPECT_EQ(renderer.image(frame.view(), layerOf(Shape::circle), canvas).picture.view.data, nullptr);
  EXPECT_EQ(
      renderer.image(frame.view(), layerOf(Shape::rectangle, {0, 0, 16385, 1}), {1, 1}).picture.view.data,
      nullptr);
  for (const PictureView& none :
       {PictureView{}, PictureView{frame.view().data, 0, 6, 32}, PictureView{frame.view().data, 8, 0, 32}})
    EXPECT_EQ(renderer.image(none, layerOf(Shape::circle), {10, 10}).picture.view.data, nullptr);
}

TEST(CameraPresentationRenderer, FillsARectangleToItsCorners) {
  const Picture picture = drawn(Frame(40, 30, red).view(), layerOf(Shape::rectangle), {100, 80});
  for (int y = 0; y < 80; ++y)
    for (int x = 0; x < 100; ++x)
      ASSERT_EQ(pixelAt(picture.view, x, y), red);
}

// Of 100 by 80 pixels the corners have a radius of 8: the diagonal leaves the shape 8 (1 - 1 / sqrt 2), or
// 2.34, pixels from both sides.
TEST(CameraPresentationRenderer, RoundsCornersByATenthOfTheShorterSide) {
  const Picture picture = drawn(Frame(40, 30, red).view(), layerOf(Shape::rounded), {100, 80});
  EXPECT_EQ(pixelAt(picture.view, 0, 0), clear);
  EXPECT_EQ(pixelAt(picture.view, 1, 1), clear);
  EXPECT_EQ(pixelAt(picture.view, 3, 3), red);
  const int edge = pixelAt(picture.view, 2, 2)[3];
  EXPECT_GT(edge, 100);
  EXPECT_LT(edge, 220);
  EXPECT_LT(pixelAt(picture.view, 7, 0)[3], 255); // the arc still falls a little within its last pixel
  EXPECT_EQ(pixelAt(picture.view, 8, 0), red);
  EXPECT_EQ(pixelAt(picture.view, 91, 0), red);
  EXPECT_LT(pixelAt(picture.view, 92, 0)[3], 255);
  EXPECT_EQ(pixelAt(picture.view, 0, 8), red);
  EXPECT_EQ(pixelAt(picture.view, 0, 71), red);
  EXPECT_LT(pixelAt(picture.view, 0, 72)[3], 255);
}

// A circle of 100 by 60 is a stadium: straight between 30 and 70, where an ellipse would be round.
TEST(CameraPresentationRenderer, MakesAStadiumOfACircleThatIsNotSquare) {
  const Picture wide = drawn(Frame(40, 30, red).view(), layerOf(Shape::circle), {100, 60});
  for (int x = 30; x < 70; ++x) {
    EXPECT_EQ(pixelAt(wide.view, x, 0), red);
    EXPECT_EQ(pixelAt(wide.view, x, 59), red);
  }
  EXPECT_LT(pixelAt(wide.view, 29, 0)[3], 255);
  EXPECT_LT(pixelAt(wide.view, 70, 0)[3], 255);
  EXPECT_EQ(pixelAt(wide.view, 7, 7), clear); // the circle meets the diagonal 8.79 from both sides
  EXPECT_LT(pixelAt(wide.view, 8, 8)[3], 64);
  EXPECT_EQ(pixelAt(wide.view, 9, 9), red);
  const Picture high = drawn(Frame(40, 30, red).view(), layerOf(Shape::circle), {60, 100});
  for (int x = 0; x < 60; ++x)
    for (int y = 0; y < 100; ++y)
      ASSERT_EQ(pixelAt(high.view, x, y), pixelAt(wide.view, y, x)) << x << "," << y;
}

// A border of 0.012 of 500 pixels is six wide.
TEST(CameraPresentationRenderer, FramesARectangleInWhite) {
  const Picture picture = drawn(Frame(40, 30, red).view(), bordered(layerOf(Shape::rectangle)), {1000, 500});
  for (int y = 0; y < 500; ++y)
    for (int x = 0; x < 1000; ++x) {
      const bool isBorder = x < 6 || x >= 994 || y < 6 || y >= 494;
      ASSERT_EQ(pixelAt(picture.view, x, y), isBorder ? white : red) << x << "," << y;
    }
}

TEST(CameraPresentationRenderer, MixesABorderThatEndsWithinAPixel) {
  const Picture picture = drawn(Frame(40, 30, red).view(), bordered(layerOf(Shape::rectangle)), {250, 125});
  EXPECT_EQ(pixelAt(picture.view, 0, 60), white); // a border of 1.5
  EXPECT_EQ(pixelAt(picture.view, 1, 60), (Pixel{137, 142, 227, 255}));
  EXPECT_EQ(pixelAt(picture.view, 2, 60), red);
  EXPECT_EQ(pixelAt(picture.view, 247, 60), red);
  EXPECT_EQ(pixelAt(picture.view, 248, 60), (Pixel{137, 142, 227, 255}));
  EXPECT_EQ(pixelAt(picture.view, 249, 60), white);
  EXPECT_EQ(pixelAt(picture.view, 120, 0), white);
  EXPECT_EQ(pixelAt(picture.view, 120, 1), (Pixel{137, 142, 227, 255}));
}

// The corner's centre is (50, 50), its outer radius 50 and its inner one 44; pixels by the distance of their
// middles along the diagonal.
TEST(CameraPresentationRenderer, CarriesTheBorderRoundTheCorners) {
  const Picture picture = drawn(Frame(40, 30, red).view(), bordered(layerOf(Shape::rounded)), {1000, 500});
  const auto onDiagonal = [&](double distance) {
    const int at = static_cast<int>(std::floor(50 - distance / std::sqrt(2)));
    return pixelAt(picture.view, at, at);
  };
  EXPECT_EQ(onDiagonal(52), clear);
  for (const double distance : {48.5, 47.0, 45.5})
    EXPECT_EQ(onDiagonal(distance), white) << distance;
  EXPECT_EQ(onDiagonal(42.5), red);
  for (const int y : {50, 250, 449}) {
    EXPECT_EQ(pixelAt(picture.view, 5, y), white);
    EXPECT_EQ(pixelAt(picture.view, 6, y), red);
    EXPECT_EQ(pixelAt(picture.view, 993, y), red);
    EXPECT_EQ(pixelAt(picture.view, 994, y), white);
  }
}

TEST(CameraPresentationRenderer, LeavesInnerCornersSharpWhereTheBorderIsWiderThanTheRadius) {
  const Picture picture = drawn(Frame(40, 30, red).view(), bordered(layerOf(Shape::rectangle)), {500, 500});
  EXPECT_EQ(pixelAt(picture.view, 0, 0), white);
  EXPECT_EQ(pixelAt(picture.view, 5, 5), white);
  EXPECT_EQ(pixelAt(picture.view, 6, 6), red);
}

TEST(CameraPresentationRenderer, TakesAbsentFlagsForFalse) {
  const Frame frame(64, 48, noise);
  VideoCameraLayerDTO layer = layerOf(Shape::rounded);
  const auto absent = bytesOf(drawn(frame.view(), layer, {50, 50}));
  layer.mirrored = false;
  layer.borderVisible = false;
  EXPECT_EQ(bytesOf(drawn(frame.view(), layer, {50, 50})), absent);
  EXPECT_NE(bytesOf(drawn(frame.view(), mirrored(layer), {50, 50})), absent);
  EXPECT_NE(bytesOf(drawn(frame.view(), bordered(layer), {50, 50})), absent);
}

TEST(CameraPresentationRenderer, LooksAtNoPathAndAtNoVisibility) {
  const Frame frame(64, 48, noise);
  VideoCameraLayerDTO layer = layerOf(Shape::rounded, {0.1, 0.2, 0.3, 0.4});
  const PlacedPicture expected = CameraPresentationRenderer().image(frame.view(), layer, {200, 100});
  layer.visible = false;
  layer.recordedPositions.emplace(1, VideoCameraPositionDTO{0, {0.5, 0.5, 0.5, 0.5}});
  const PlacedPicture actual = CameraPresentationRenderer().image(frame.view(), layer, {200, 100});
  EXPECT_EQ(actual.x, expected.x);
  EXPECT_EQ(actual.y, expected.y);
  EXPECT_EQ(bytesOf(actual.picture), bytesOf(expected.picture));
}

} // namespace
} // namespace tessarin
