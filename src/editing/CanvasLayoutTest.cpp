#include "editing/CanvasLayout.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace tessarin {
namespace {

using enum VideoCanvasContentModeDTO;
using Background = VideoCanvasBackgroundKindDTO;

constexpr SizeDTO content{1920, 1080};
constexpr double tolerance = 1e-9;

VideoCanvasConfigDTO canvasOf(std::int64_t width, std::int64_t height, VideoCanvasContentModeDTO mode = fit) {
  VideoCanvasConfigDTO canvas;
  canvas.widthPixels = width;
  canvas.heightPixels = height;
  canvas.contentMode = mode;
  canvas.background = {Background::solid, "#102030", "#ffffff80", 90};
  return canvas;
}

template<class Change> VideoCanvasConfigDTO with(VideoCanvasConfigDTO canvas, const Change& change) {
  change(canvas);
  return canvas;
}

void expectNear(const RectDTO& rect, const RectDTO& expected, const char* name) {
  EXPECT_NEAR(rect.x, expected.x, tolerance) << name;
  EXPECT_NEAR(rect.y, expected.y, tolerance) << name;
  EXPECT_NEAR(rect.width, expected.width, tolerance) << name;
  EXPECT_NEAR(rect.height, expected.height, tolerance) << name;
}

TEST(CanvasLayout, PlacesTheContent) {
  const VideoCanvasConfigDTO upright = canvasOf(1080, 1920);
  const struct {
    const char* name;
    VideoCanvasConfigDTO canvas;
    RectDTO available, content;
  } cases[] = {
      {"the same", canvasOf(1920, 1080), {0, 0, 1920, 1080}, {0, 0, 1920, 1080}},
      {"fit", upright, {0, 0, 1080, 1920}, {0, 656.25, 1080, 607.5}},
      {"fit into what is wider", canvasOf(3840, 1080), {0, 0, 3840, 1080}, {960, 0, 1920, 1080}},
      // More than the canvas, which cuts it.
      {"fill", canvasOf(1080, 1920, fill), {0, 0, 1080, 1920}, {540 - 5120 / 3.0, 0, 10240 / 3.0, 1920}},
      {"manual",
       with(canvasOf(1080, 1920, manual), [](auto& it) { it.manualScale = 0.5; }),
       {0, 0, 1080, 1920},
       {270, 808.125, 540, 303.75}},
      {"manual, to the right and down",
       with(canvasOf(1080, 1920, manual),
            [](auto& it) {
              it.manualScale = 0.5;
              it.offsetX = 0.1;
              it.offsetY = 0.25;
            }),
       {0, 0, 1080, 1920},
       {378, 1288.125, 540, 303.75}},
      {"manual, to the left and up",
       with(canvasOf(1080, 1920, manual),
            [](auto& it) {
              it.manualScale = 4;
              it.offsetX = -1;
              it.offsetY = -0.5;
            }),
       {0, 0, 1080, 1920},
       {540 - 2160 - 1080, 960 - 1215 - 960, 4320, 2430}},
      {"an offset counts in every mode",
       with(upright, [](auto& it) { it.offsetY = 0.1; }),
       {0, 0, 1080, 1920},
       {0, 848.25, 1080, 607.5}},
      {"the scale in one mode only",
       with(upright, [](auto& it) { it.manualScale = 3; }),
       {0, 0, 1080, 1920},
       {0, 656.25, 1080, 607.5}},
      {"padding",
       with(upright, [](auto& it) { it.padding = 0.1; }),
       {108, 108, 864, 1704},
       {108, 717, 864, 486}},
      {"a part of the frame",
       with(upright,
            [](auto& it) {
              it.contentFrame = NormalizedVideoRectDTO{0.1, 0.2, 0.5, 0.25};
            }),
       {108, 384, 540, 480},
       {108, 472.125, 540, 303.75}},
      {"a part of the frame, filled",
       with(canvasOf(1080, 1920, fill),
            [](auto& it) {
              it.contentFrame = NormalizedVideoRectDTO{0, 0.5, 1, 0.5};
              it.padding = 0.05;
            }),
       {54, 1014, 972, 852},
       {540 - 852 * 8 / 9.0, 1014, 852 * 16 / 9.0, 852}},
  };
  for (const auto& each : cases) {
    const CanvasLayout layout = canvasLayout(content, each.canvas);
    expectNear(layout.availableRect, each.available, each.name);
    expectNear(layout.contentRect, each.content, each.name);
  }
}

TEST(CanvasLayout, LeavesTwoPixelsAtLeast) {
  const struct {
    std::int64_t side;
    double padding;
    std::optional<NormalizedVideoRectDTO> frame;
    RectDTO available;
  } cases[] = {
      {10, 0.4, {}, {4, 4, 2, 2}},
      {12, 0.4, {}, {4.8, 4.8, 2.4, 2.4}},
      // The left and the lower edge stay where the padding puts them.
      {4, 0.4, {}, {1.6, 0.4, 2, 2}},
      {2, 0.4, {}, {0.8, -0.8, 2, 2}},
      {100, 0.2, NormalizedVideoRectDTO{0, 0, 1, 0.25}, {20, 3, 60, 2}},
      {100, 0.2, NormalizedVideoRectDTO{0.5, 0.75, 0.25, 0.25}, {70, 78, 2, 2}},
  };
  for (const auto& each : cases) {
    VideoCanvasConfigDTO canvas = canvasOf(each.side, each.side);
    canvas.padding = each.padding;
    canvas.contentFrame = each.frame;
    expectNear(canvasLayout({2, 2}, canvas).availableRect, each.available, "available");
  }
}

// The layout as it is told from the bottom.
RectDTO layoutUpwards(const SizeDTO& size, const VideoCanvasConfigDTO& canvas) {
  const auto width = static_cast<double>(canvas.widthPixels);
  const auto height = static_cast<double>(canvas.heightPixels);
  const double padding = canvas.padding * std::min(width, height);
  const NormalizedVideoRectDTO frame = canvas.contentFrame.value_or(NormalizedVideoRectDTO{0, 0, 1, 1});
  const RectDTO available{padding + frame.x * width, padding + (1 - frame.y - frame.height) * height,
                          std::max(frame.width * width - 2 * padding, 2.0),
                          std::max(frame.height * height - 2 * padding, 2.0)};
  const double across = available.width / static_cast<double>(size.width);
  const double along = available.height / static_cast<double>(size.height);
  const double scale = canvas.contentMode == fill  ? std::max(across, along)
                       : canvas.contentMode == fit ? std::min(across, along)
                                                   : std::min(across, along) * canvas.manualScale;
  const double contentWidth = static_cast<double>(size.width) * scale;
  const double contentHeight = static_cast<double>(size.height) * scale;
  return {available.x + available.width / 2 - contentWidth / 2 + canvas.offsetX * width,
          available.y + available.height / 2 - contentHeight / 2 - canvas.offsetY * height, contentWidth,
          contentHeight};
}

TEST(CanvasLayout, AgreesWithTheWayUpwards) {
  for (const auto mode : {fit, fill, manual})
    for (const double padding : {0.0, 0.07, 0.4})
      for (const double offset : {-0.3, 0.0, 0.6})
        for (const SizeDTO& size : {SizeDTO{2, 2}, SizeDTO{640, 360}, SizeDTO{300, 1000}})
          for (const std::int64_t side : {4, 722, 1920}) {
            VideoCanvasConfigDTO canvas = canvasOf(side, 1080, mode);
            canvas.manualScale = 1.7;
            canvas.padding = padding;
            canvas.offsetX = offset;
            canvas.offsetY = -offset / 2;
            canvas.contentFrame = NormalizedVideoRectDTO{0.1, 0.15, 0.6, 0.3};
            const RectDTO upwards = layoutUpwards(size, canvas);
            expectNear(canvasLayout(size, canvas).contentRect,
                       {upwards.x, 1080 - upwards.y - upwards.height, upwards.width, upwards.height},
                       "downwards");
          }
}

TEST(CanvasComposition, PlacesThePictureOnItsRectangle) {
  for (const auto mode : {fit, fill, manual}) {
    VideoCanvasConfigDTO canvas = canvasOf(1080, 1350, mode);
    canvas.manualScale = 0.7;
    canvas.offsetX = 0.05;
    canvas.padding = 0.03;
    const CanvasComposition composition = canvasComposition(content, canvas);
    EXPECT_EQ(composition.size, (SizeDTO{1080, 1350}));
    EXPECT_EQ(composition.contentRect, canvasLayout(content, canvas).contentRect);
    expectNear(composition.contentPlacement.boundsOf({0, 0, 1920, 1080}), composition.contentRect, "picture");
  }
  EXPECT_EQ(canvasComposition(content, canvasOf(1920, 1080)).contentPlacement, AffineTransform{});
}

TEST(CanvasComposition, FillsWhatIsAround) {
  VideoCanvasConfigDTO canvas = canvasOf(1080, 1920);
  const Color first{16 / 255.0, 32 / 255.0, 48 / 255.0, 1};
  EXPECT_EQ(std::get<Color>(canvasComposition(content, canvas).background), first);

  canvas.background.kind = Background::gradient;
  EXPECT_EQ(std::get<GradientBackground>(canvasComposition(content, canvas).background),
            (GradientBackground{{{0, 960}, {1080, 960}}, first, {1, 1, 1, 128 / 255.0}}));

  canvas.background.kind = Background::blur;
  const auto blur = std::get<BlurBackground>(canvasComposition(content, canvas).background);
  expectNear(blur.placement.boundsOf({0, 0, 1920, 1080}), {540 - 5120 / 3.0, 0, 10240 / 3.0, 1920},
             "blurred picture");
  EXPECT_EQ(blur.radius, 27);
}

TEST(CanvasComposition, BlursByTheShorterSide) {
  const struct {
    std::int64_t width, height;
    double background, shadowOffset, shadow;
  } cases[] = {
      {1920, 1080, 27, 12.96, 12.96}, {1080, 1920, 27, 23.04, 12.96},
      {720, 1000, 18, 12, 8.64},      {700, 1000, 18, 12, 8.4},
      {500, 334, 18, 4.008, 6},       {500, 332, 18, 4, 6},
      {504, 504, 18, 6.048, 6.048},   {2, 2, 18, 4, 6},
  };
  for (const auto& each : cases) {
    VideoCanvasConfigDTO canvas = canvasOf(each.width, each.height);
    canvas.background.kind = Background::blur;
    canvas.shadow = true;
    const CanvasComposition composition = canvasComposition(content, canvas);
    EXPECT_NEAR(std::get<BlurBackground>(composition.background).radius, each.background, tolerance);
    ASSERT_TRUE(composition.shadow);
    EXPECT_NEAR(composition.shadow->offsetY, each.shadowOffset, tolerance);
    EXPECT_NEAR(composition.shadow->radius, each.shadow, tolerance);
    EXPECT_EQ(composition.shadow->opacity, 0.45);
  }
}

TEST(CanvasComposition, RoundsCornersAndThrowsAShadowWhereAsked) {
  VideoCanvasConfigDTO canvas = canvasOf(1080, 1920);
  EXPECT_EQ(canvasComposition(content, canvas).cornerRadius, std::nullopt);
  EXPECT_EQ(canvasComposition(content, canvas).shadow, std::nullopt);
  canvas.cornerRadius = 0.1;
  EXPECT_NEAR(canvasComposition(content, canvas).cornerRadius.value_or(0), 60.75, tolerance);
  EXPECT_EQ(canvasComposition(content, canvas).shadow, std::nullopt);
}

} // namespace
} // namespace tessarin
