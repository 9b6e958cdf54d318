#include "editing/EffectGeometry.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace editTesting;

constexpr SizeDTO fullHD{1920, 1080};
constexpr double tolerance = 1e-9;
const RectDTO somePixels{192, 216, 576, 432}; // someRect of it

void expectNear(const PixelPoint& point, const PixelPoint& expected) {
  EXPECT_NEAR(point.x, expected.x, tolerance);
  EXPECT_NEAR(point.y, expected.y, tolerance);
}

void expectNear(const RectDTO& rect, const RectDTO& expected) {
  expectNear(PixelPoint{rect.x, rect.y}, {expected.x, expected.y});
  expectNear(PixelPoint{rect.width, rect.height}, {expected.width, expected.height});
}

template<class Geometry, Kind K>
Geometry geometryOf(VideoEditEffectDTO::RecordOf<K> record, const SizeDTO& size = fullHD) {
  return std::get<Geometry>(annotationGeometry(effect<K>(std::move(record)), size).value());
}

TEST(EffectGeometry, DrawsAnnotationsOnly) {
  for (const VideoEditEffectDTO& each : everyEffect()) {
    const bool isOther = each.kind() == Kind::zoom || each.kind() == Kind::redaction ||
                         each.kind() == Kind::freeze || each.kind() == Kind::interaction;
    EXPECT_EQ(annotationGeometry(each, fullHD).has_value(), !isOther) << each.id();
  }
}

TEST(EffectGeometry, HidesARectangle) {
  for (const auto mode : {VideoRedactionMode::mosaic, VideoRedactionMode::blur, VideoRedactionMode::solid}) {
    RedactionVideoEffectDTO record = redaction();
    record.mode = mode;
    record.color = "#ff000080";
    const RedactionGeometry geometry = redactionGeometry(record, fullHD);
    EXPECT_EQ(geometry.mode, mode);
    expectNear(geometry.rect, somePixels);
    expectNear(geometry.center, {480, 432});
    EXPECT_EQ(geometry.strength, 20); // pixels, whatever the picture's size
    EXPECT_EQ(geometry.color, (Color{1, 0, 0, 128 / 255.0}));
    EXPECT_EQ(redactionGeometry(record, {64, 36}).strength, 20);
  }
}

TEST(EffectGeometry, HighlightsByTheOpacityAlone) {
  HighlightVideoEffectDTO record = highlight();
  record.color = "#ffff0010";
  record.opacity = 0.35;
  const auto geometry = geometryOf<HighlightGeometry, Kind::highlight>(record);
  expectNear(geometry.rect, somePixels);
  EXPECT_EQ(geometry.fill, (Color{1, 1, 0, 0.35}));
}

TEST(EffectGeometry, FillsAndStrokesShapes) {
  const auto box = geometryOf<ShapeGeometry, Kind::rectangle>(shape());
  EXPECT_FALSE(box.isEllipse);
  expectNear(box.rect, somePixels);
  EXPECT_EQ(box.fill, (Color{0, 1, 0, 0}));
  EXPECT_EQ(box.stroke, (Color{1, 0, 0, 1}));
  EXPECT_NEAR(box.lineWidth, 10.8, tolerance);
  ShapeGeometry ellipse = geometryOf<ShapeGeometry, Kind::ellipse>(shape());
  EXPECT_TRUE(ellipse.isEllipse);
  ellipse.isEllipse = false;
  EXPECT_EQ(ellipse, box);
}

TEST(EffectGeometry, DrawsLinesOfAPixelAtLeast) {
  const struct {
    double strokeWidth;
    SizeDTO size;
    double width;
  } cases[] = {{0.01, fullHD, 10.8},    {0.01, {1080, 1920}, 10.8}, {0.05, {3840, 2160}, 108},
               {0.002, {1000, 500}, 1}, {0.002, {1000, 499}, 1},    {0.002, {1000, 600}, 1.2},
               {0.002, {2, 2}, 1}};
  for (const auto& each : cases)
    EXPECT_NEAR(annotationLineWidth(each.strokeWidth, each.size), each.width, tolerance);
}

TEST(EffectGeometry, PointsArrows) {
  // cos 30° = 0.8660254, cos 15° = 0.9659258, sin 15° = 0.2588190; the head's sides are 50 long.
  const double far = 43.301270189;
  const double wide = 48.296291314;
  const double narrow = 12.940952255;
  const struct {
    const char* name;
    NormalizedVideoPointDTO start, end;
    PixelPoint first, second; // corners
  } cases[] = {
      {"right", {0.1, 0.5}, {0.5, 0.5}, {500 - far, 525}, {500 - far, 475}},
      {"left", {0.9, 0.5}, {0.5, 0.5}, {500 + far, 475}, {500 + far, 525}},
      {"down", {0.5, 0.1}, {0.5, 0.5}, {475, 500 - far}, {525, 500 - far}},
      {"up", {0.5, 0.9}, {0.5, 0.5}, {525, 500 + far}, {475, 500 + far}},
      {"right and down", {0.1, 0.1}, {0.5, 0.5}, {500 - wide, 500 - narrow}, {500 - narrow, 500 - wide}},
      {"left and up", {0.9, 0.9}, {0.5, 0.5}, {500 + wide, 500 + narrow}, {500 + narrow, 500 + wide}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    ArrowVideoEffectDTO record = arrow();
    record.start = each.start;
    record.end = each.end;
    record.strokeWidth = 0.01;
    const auto geometry = geometryOf<ArrowGeometry, Kind::arrow>(record, {1000, 1000});
    expectNear(geometry.start, {1000 * each.start.x, 1000 * each.start.y});
    expectNear(geometry.end, {500, 500});
    EXPECT_NEAR(geometry.lineWidth, 10, tolerance);
    EXPECT_EQ(geometry.head[0], geometry.end);
    EXPECT_NEAR(geometry.head[1].x, each.first.x, 1e-6);
    EXPECT_NEAR(geometry.head[1].y, each.first.y, 1e-6);
    EXPECT_NEAR(geometry.head[2].x, each.second.x, 1e-6);
    EXPECT_NEAR(geometry.head[2].y, each.second.y, 1e-6);
    EXPECT_EQ(geometry.color, (Color{1, 0, 0, 1}));
  }
}

// The line's direction is that of pixels, not of fractions.
TEST(EffectGeometry, PointsArrowsByPixels) {
  ArrowVideoEffectDTO record = arrow();
  record.start = {0, 0};
  record.end = {0.25, 0.5};
  record.strokeWidth = 0.01;
  const auto geometry = geometryOf<ArrowGeometry, Kind::arrow>(record, {2000, 1000});
  expectNear(geometry.end, {500, 500});
  EXPECT_NEAR(geometry.head[1].x, 451.703708686, 1e-6);
  EXPECT_NEAR(geometry.head[1].y, 487.059047745, 1e-6);
}

TEST(EffectGeometry, CirclesNumbers) {
  const struct {
    SizeDTO size;
    double diameter, fontSize;
  } cases[] = {{fullHD, 86.4, 44.928},  {{1080, 1920}, 86.4, 44.928}, {{640, 360}, 28.8, 14.976},
               {{640, 350}, 28, 14.56}, {{640, 348}, 28, 14.56},      {{2, 2}, 28, 14.56}};
  for (const auto& each : cases) {
    NumberVideoEffectDTO record = number();
    record.center = {0.25, 0.75};
    record.value = 999;
    const auto geometry = geometryOf<NumberGeometry, Kind::number>(record, each.size);
    expectNear(geometry.center,
               {0.25 * static_cast<double>(each.size.width), 0.75 * static_cast<double>(each.size.height)});
    EXPECT_NEAR(geometry.diameter, each.diameter, tolerance);
    EXPECT_NEAR(geometry.fontSize, each.fontSize, tolerance);
    EXPECT_EQ(geometry.text, "999");
    EXPECT_EQ(geometry.fill, (Color{0, 0, 1, 1}));
    EXPECT_EQ(geometry.textColor, (Color{1, 1, 1, 1}));
  }
}

TEST(EffectGeometry, SetsTextInItsRectangle) {
  const auto geometry = geometryOf<TextGeometry, Kind::text>(text());
  expectNear(geometry.rect, somePixels);
  EXPECT_EQ(geometry.background, (Color{0, 0, 0, 128 / 255.0}));
  ASSERT_TRUE(geometry.inner);
  expectNear(*geometry.inner, {198, 220, 564, 424});
  EXPECT_EQ(geometry.text, "A text");
  EXPECT_NEAR(geometry.fontSize, 54, tolerance);
  EXPECT_NEAR(geometry.lineHeight, 62.1, tolerance);
  EXPECT_EQ(geometry.textColor, (Color{1, 1, 1, 1}));
}

TEST(EffectGeometry, KeepsTextLegibleAndInside) {
  const struct {
    NormalizedVideoRectDTO rect;
    SizeDTO size;
    double fontSize; // at a scale of 0.05
    bool hasRoom;
  } cases[] = {{{0, 0, 1, 1}, {1920, 160}, 8, true},     {{0, 0, 1, 1}, {1920, 158}, 8, true},
               {{0, 0, 1, 1}, {1920, 200}, 10, true},    {{0, 0, 0.125, 1}, {96, 1080}, 54, false},
               {{0, 0, 0.125, 1}, {98, 1080}, 54, true}, {{0, 0, 1, 0.125}, {1920, 64}, 8, false},
               {{0, 0, 1, 0.125}, {1920, 66}, 8, true},  {{0, 0, 0.02, 0.02}, {2, 2}, 8, false}};
  for (const auto& each : cases) {
    TextVideoEffectDTO record = text();
    record.rect = each.rect;
    const auto geometry = geometryOf<TextGeometry, Kind::text>(record, each.size);
    EXPECT_NEAR(geometry.fontSize, each.fontSize, tolerance);
    EXPECT_NEAR(geometry.lineHeight, each.fontSize * 1.15, tolerance);
    EXPECT_EQ(geometry.inner.has_value(), each.hasRoom) << each.size.width << 'x' << each.size.height;
  }
}

} // namespace
} // namespace tessarin
