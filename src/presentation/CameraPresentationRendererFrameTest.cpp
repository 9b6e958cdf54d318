#include "presentation/CameraPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>

// What becomes of the frame itself: fill and crop, mirror, edges between pixels, memory.
namespace tessarin {
namespace {

using namespace camera_pictures;
using Shape = VideoCameraShapeDTO;

const Shape shapes[] = {Shape::rounded, Shape::circle, Shape::rectangle};

struct Crop {
  const char* name;
  int width, height; // of the frame
  SizeDTO canvas;
  int left, top, right, bottom; // what is seen of the frame, on whole pixels of it and of the canvas
};

const Crop crops[] = {
    {"4:3 into 1:1", 400, 300, {100, 100}, 50, 0, 350, 300},
    {"16:9 into 4:3", 1600, 900, {120, 90}, 200, 0, 1400, 900},
    {"1:1 into 2:1", 200, 200, {100, 50}, 0, 50, 200, 150},
    {"3:4 into 1:1, larger", 30, 40, {90, 90}, 0, 5, 30, 35},
    {"4:3 into 1:1, larger", 40, 30, {120, 120}, 5, 0, 35, 30},
    {"4:3 into 4:3", 40, 30, {80, 60}, 0, 0, 40, 30},
    {"as large", 40, 30, {40, 30}, 0, 0, 40, 30},
    {"as high", 40, 30, {30, 30}, 5, 0, 35, 30},
};

// What is seen is blue with a green rim at its left and a white one at its top; what is not is red.
TEST(CameraPresentationRenderer, FillsItsTargetAndCropsTheRest) {
  for (const Crop& crop : crops) {
    const double scale = static_cast<double>(crop.canvas.width) / (crop.right - crop.left);
    const int rim = std::max(static_cast<int>(std::lround(3 / scale)), 3); // three pixels, or of the frame
    const Frame frame(crop.width, crop.height, [&](int x, int y) {
      if (x < crop.left || x >= crop.right || y < crop.top || y >= crop.bottom)
        return red;
      return x < crop.left + rim ? green : y < crop.top + rim ? white : blue;
    });
    const Picture picture = drawn(frame.view(), layerOf(Shape::rectangle), crop.canvas);
    const int rimEnd = static_cast<int>(std::lround(rim * scale));
    const int width = picture.view.width;
    const int height = picture.view.height;
    // Larger, colours mix over an edge between pixels of the frame, and the crop is such an edge.
    const int mixed = scale > 1 ? static_cast<int>(std::ceil(scale)) : 0;
    for (int y = mixed; y < height - mixed; ++y)
      for (int x = mixed; x < width - mixed; ++x) {
        if (mixed > 0 && (std::abs(x - rimEnd) <= mixed || std::abs(y - rimEnd) <= mixed))
          continue;
        const Pixel& expected = x < rimEnd ? green : y < rimEnd ? white : blue;
        ASSERT_EQ(pixelAt(picture.view, x, y), expected) << crop.name << " at " << x << "," << y;
      }
  }
}

TEST(CameraPresentationRenderer, MirrorsBeforeItScalesAndCrops) {
  const Pixel half[] = {red, blue};
  const Frame frame(400, 300, [&](int x, int) { return half[x < 120 ? 0 : 1]; });
  // Of 400 columns those from 50 to 350 are seen, so the first 70 are red: 23.3 of 100.
  const Picture plain = drawn(frame.view(), layerOf(Shape::rectangle), {100, 100});
  EXPECT_EQ(pixelAt(plain.view, 22, 50), red);
  EXPECT_EQ(pixelAt(plain.view, 24, 50), blue);
  const Picture turned = drawn(frame.view(), mirrored(layerOf(Shape::rectangle)), {100, 100});
  EXPECT_EQ(pixelAt(turned.view, 75, 50), blue);
  EXPECT_EQ(pixelAt(turned.view, 77, 50), red);
}

TEST(CameraPresentationRenderer, MirrorsLikeAFrameThatIsMirrored) {
  const SizeDTO canvases[] = {{30, 30}, {64, 48}, {63, 48}, {61, 40}, {200, 150}, {1, 1}};
  const Frame frame(64, 48, noise);
  const Frame turned(64, 48, [](int x, int y) { return noise(63 - x, y); });
  for (const SizeDTO& canvas : canvases) {
    const Picture expected = drawn(turned.view(), bordered(layerOf(Shape::rounded)), canvas);
    const Picture actual = drawn(frame.view(), mirrored(bordered(layerOf(Shape::rounded))), canvas);
    for (int y = 0; y < canvas.height; ++y)
      for (int x = 0; x < canvas.width; ++x)
        for (std::size_t channel = 0; channel < 4; ++channel)
          ASSERT_NEAR(pixelAt(actual.view, x, y)[channel], pixelAt(expected.view, x, y)[channel], 1)
              << canvas.width << "x" << canvas.height << " at " << x << "," << y;
  }
}

TEST(CameraPresentationRenderer, CoversPixelsAtEdgesInPart) {
  // From 10.25 to 30.5, and from 20.5 to 40.75.
  const VideoCameraLayerDTO layer = layerOf(Shape::rectangle, {0.1025, 0.205, 0.2025, 0.2025});
  const PlacedPicture image =
      CameraPresentationRenderer().image(Frame(40, 30, white).view(), layer, {100, 100});
  EXPECT_EQ(image.x, 10);
  EXPECT_EQ(image.y, 20);
  ASSERT_EQ(image.picture.view.width, 21);
  ASSERT_EQ(image.picture.view.height, 21);
  const auto level = [&](int x, int y) {
    const Pixel pixel = pixelAt(image.picture.view, x, y);
    EXPECT_EQ(pixel, (Pixel{pixel[3], pixel[3], pixel[3], pixel[3]}));
    return pixel[3];
  };
  EXPECT_EQ(level(0, 10), 191);
  EXPECT_EQ(level(1, 10), 255);
  EXPECT_EQ(level(19, 10), 255);
  EXPECT_EQ(level(20, 10), 128);
  EXPECT_EQ(level(10, 0), 128);
  EXPECT_EQ(level(10, 20), 191);
  EXPECT_EQ(level(0, 0), 96);
  EXPECT_EQ(level(20, 20), 96);
}

// Transparent parts take nothing from the colour but its share: no dark or light fringes.
TEST(CameraPresentationRenderer, KeepsTheColorAtSoftEdges) {
  const NormalizedVideoRectDTO rects[] = {{0, 0, 1, 1}, {0.001, 0.002, 0.9, 0.8}, {0.1, 0.1, 0.05, 0.2}};
  for (const NormalizedVideoRectDTO& rect : rects)
    for (const Shape shape : shapes) {
      const Picture picture = drawn(Frame(40, 30, red).view(), layerOf(shape, rect), {211, 173});
      for (int y = 0; y < picture.view.height; ++y)
        for (int x = 0; x < picture.view.width; ++x) {
          const Pixel pixel = pixelAt(picture.view, x, y);
          for (std::size_t channel = 0; channel < 3; ++channel)
            ASSERT_EQ(pixel[channel], std::lround(red[channel] * pixel[3] / 255.0)) << x << "," << y;
        }
    }
}

TEST(CameraPresentationRenderer, IsAlikeInAllCornersAtEverySize) {
  const SizeDTO canvases[] = {{1, 1},  {2, 2},   {1, 2},   {2, 1},    {3, 3},    {3, 5},
                              {17, 4}, {50, 33}, {33, 50}, {101, 99}, {384, 288}};
  for (const SizeDTO& canvas : canvases)
    for (const Shape shape : shapes)
      for (const bool hasBorder : {false, true}) {
        VideoCameraLayerDTO layer = layerOf(shape);
        layer.borderVisible = hasBorder;
        const Picture picture = drawn(Frame(40, 30, red).view(), layer, canvas);
        const int right = picture.view.width - 1;
        const int bottom = picture.view.height - 1;
        ASSERT_EQ(right + 1, canvas.width);
        ASSERT_EQ(bottom + 1, canvas.height);
        for (int y = 0; y <= bottom; ++y)
          for (int x = 0; x <= right; ++x) {
            const Pixel pixel = pixelAt(picture.view, x, y);
            ASSERT_EQ(pixel, pixelAt(picture.view, right - x, y));
            ASSERT_EQ(pixel, pixelAt(picture.view, x, bottom - y));
            ASSERT_LE(std::max({pixel[0], pixel[1], pixel[2]}), pixel[3]);
          }
      }
  // A circle has pi / 4 of its pixel.
  EXPECT_EQ(pixelAt(drawn(Frame(9, 9, white).view(), layerOf(Shape::circle), {1, 1}).view, 0, 0)[3], 200);
}

TEST(CameraPresentationRenderer, LaysTransparentFramesOverTheBorderOnly) {
  std::vector<std::uint8_t> bytes(40 * 30 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 4)
    std::copy_n(std::array<std::uint8_t, 4>{10, 20, 100, 128}.begin(), 4,
                bytes.begin() + static_cast<std::ptrdiff_t>(i));
  const PictureView view{bytes.data(), 40, 30, 160, PixelFormat::bgra8Premultiplied};
  const Picture picture = drawn(view, bordered(layerOf(Shape::rectangle)), {1000, 500});
  EXPECT_EQ(pixelAt(picture.view, 5, 250), white);
  EXPECT_EQ(pixelAt(picture.view, 6, 250), (Pixel{10, 20, 100, 128}));
}

TEST(CameraPresentationRenderer, TakesRowsAtAnyDistance) {
  const Frame frame(64, 48, noise);
  const VideoCameraLayerDTO layer = bordered(layerOf(Shape::circle));
  for (const SizeDTO& canvas : {SizeDTO{50, 40}, SizeDTO{64, 48}, SizeDTO{200, 100}}) {
    const auto expected = bytesOf(drawn(frame.view(), layer, canvas));
    for (const int slack : {1, 4, 4096}) {
      const std::ptrdiff_t stride = 64 * 4 + slack;
      std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stride * 48 + 1), 99);
      for (int y = 0; y < 48; ++y)
        std::copy_n(frame.view().data + std::ptrdiff_t{y} * 64 * 4, 64 * 4, bytes.data() + 1 + y * stride);
      EXPECT_EQ(bytesOf(drawn({bytes.data() + 1, 64, 48, stride, PixelFormat::bgrx8}, layer, canvas)),
                expected);
    }
    // Rows from the bottom up.
    const Frame reversed(64, 48, [](int x, int y) { return noise(x, 47 - y); });
    const PictureView upwards{reversed.view().data + std::ptrdiff_t{47} * 64 * 4, 64, 48, -64 * 4,
                              PixelFormat::bgrx8};
    EXPECT_EQ(bytesOf(drawn(upwards, layer, canvas)), expected);
  }
}

TEST(CameraPresentationRenderer, TakesFramesOfAnySize) {
  for (const auto& [width, height] : {std::pair{1, 1}, {1, 500}, {4096, 3}, {7680, 4320}}) {
    const Frame frame(width, height, blue);
    for (const SizeDTO& canvas : {SizeDTO{1, 1}, SizeDTO{3, 2}, SizeDTO{384, 288}}) {
      const Picture picture = drawn(frame.view(), layerOf(Shape::rectangle), canvas);
      for (int y = 0; y < canvas.height; ++y)
        for (int x = 0; x < canvas.width; ++x)
          ASSERT_EQ(pixelAt(picture.view, x, y), blue) << width << "x" << height;
    }
  }
}

struct Request {
  const Frame& frame;
  VideoCameraLayerDTO layer;
  SizeDTO canvas;
};

// Each differs in one way from one before it.
std::vector<Request> requests(const Frame& small, const Frame& large) {
  const VideoCameraLayerDTO layer = layerOf(Shape::rounded, {0.2, 0.2, 0.5, 0.5});
  return {{small, layer, {100, 80}},
          {large, layer, {100, 80}},
          {small, mirrored(layer), {100, 80}},
          {small, bordered(layer), {100, 80}},
          {small, layerOf(Shape::circle, layer.rect), {100, 80}},
          {small, layerOf(Shape::rectangle, layer.rect), {100, 80}},
          {small, layerOf(Shape::rounded, {0.205, 0.2, 0.5, 0.5}), {100, 80}},
          {small, layerOf(Shape::rounded, {0.3, 0.2, 0.5, 0.5}), {100, 80}},
          {small, layerOf(Shape::rounded, {0.2, 0.2, 0.5, 0.6}), {100, 80}},
          {small, layer, {80, 100}},
          {small, layer, {200, 160}}};
}

TEST(CameraPresentationRenderer, KeepsNothingThatShows) {
  const Frame small(64, 48, noise);
  const Frame large(128, 96, noise);
  const auto all = requests(small, large);
  CameraPresentationRenderer renderer;
  for (const Request& first : all)
    for (const Request& second : all)
      for (const Request* request : {&first, &second}) {
        const PlacedPicture actual = renderer.image(request->frame.view(), request->layer, request->canvas);
        const PlacedPicture expected =
            CameraPresentationRenderer().image(request->frame.view(), request->layer, request->canvas);
        ASSERT_EQ(actual.x, expected.x);
        ASSERT_EQ(actual.y, expected.y);
        ASSERT_EQ(bytesOf(actual.picture), bytesOf(expected.picture));
      }
}

TEST(CameraPresentationRenderer, LeavesPicturesAloneThatAreHeld) {
  std::optional<CameraPresentationRenderer> renderer(std::in_place);
  const VideoCameraLayerDTO layer = layerOf(Shape::rounded);
  const PlacedPicture first = renderer->image(Frame(40, 30, red).view(), layer, {40, 30});
  const PlacedPicture second = renderer->image(Frame(40, 30, blue).view(), layer, {40, 30});
  const std::uint8_t* place = nullptr;
  for (int i = 0; i < 5; ++i) {
    const PlacedPicture later = renderer->image(Frame(40, 30, green).view(), layer, {40, 30});
    EXPECT_EQ(pixelAt(later.picture.view, 20, 15), green);
    EXPECT_TRUE(place == nullptr || place == later.picture.view.data); // the memory of the one before
    place = later.picture.view.data;
  }
  renderer.reset();
  EXPECT_EQ(pixelAt(first.picture.view, 20, 15), red);
  EXPECT_EQ(pixelAt(second.picture.view, 20, 15), blue);
}

} // namespace
} // namespace tessarin
