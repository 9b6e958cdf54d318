#include "recording/CameraOverlayLayout.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using enum CameraPosition;

RectDTO rectOf(std::int64_t width, std::int64_t height, CameraPosition position = topLeft) {
  return CameraOverlayLayout::rect({width, height}, position, std::nullopt);
}

TEST(CameraOverlayLayoutTest, StandsInEachCornerOfAFullScreen) {
  EXPECT_EQ(rectOf(1920, 1080, topLeft), (RectDTO{24, 24, 384, 288}));
  EXPECT_EQ(rectOf(1920, 1080, topRight), (RectDTO{1512, 24, 384, 288}));
  EXPECT_EQ(rectOf(1920, 1080, bottomLeft), (RectDTO{24, 768, 384, 288}));
  EXPECT_EQ(rectOf(1920, 1080, bottomRight), (RectDTO{1512, 768, 384, 288}));
}

TEST(CameraOverlayLayoutTest, StandsInEachCornerOfASmallRegion) {
  EXPECT_EQ(rectOf(200, 100, topLeft), (RectDTO{24, 24, 40, 30}));
  EXPECT_EQ(rectOf(200, 100, topRight), (RectDTO{136, 24, 40, 30}));
  EXPECT_EQ(rectOf(200, 100, bottomLeft), (RectDTO{24, 46, 40, 30}));
  EXPECT_EQ(rectOf(200, 100, bottomRight), (RectDTO{136, 46, 40, 30}));
}

TEST(CameraOverlayLayoutTest, HasAnEvenSizeWithinItsBounds) {
  struct Row {
    std::int64_t width, height;
    double rectWidth, rectHeight;
  };
  for (const Row& row : {
           Row{2, 1000, 2, 2},
           Row{14, 1000, 2, 2},
           Row{15, 1000, 2, 2},
           Row{19, 1000, 2, 2},
           Row{20, 1000, 4, 2},
           Row{30, 1000, 6, 4},
           Row{1914, 1080, 382, 286},
           Row{1919, 1080, 382, 286},
           Row{1920, 1080, 384, 288},
           Row{1929, 1080, 384, 288},
           Row{1930, 1080, 384, 288},
           Row{7680, 4320, 384, 288},
       }) {
    const RectDTO rect = rectOf(row.width, row.height);
    EXPECT_EQ(rect.width, row.rectWidth) << row.width;
    EXPECT_EQ(rect.height, row.rectHeight) << row.width;
  }
}

TEST(CameraOverlayLayoutTest, IsNoHigherThanTheCanvas) {
  struct Row {
    std::int64_t height;
    double rectHeight;
  };
  for (const Row& row : {Row{2, 2}, Row{3, 2}, Row{4, 4}, Row{100, 100}, Row{101, 100}, Row{287, 286},
                         Row{288, 288}, Row{289, 288}}) {
    const RectDTO rect = rectOf(1920, row.height, bottomRight);
    EXPECT_EQ(rect.height, row.rectHeight) << row.height;
    EXPECT_EQ(rect.y + rect.height, static_cast<double>(row.height)) << row.height;
  }
}

TEST(CameraOverlayLayoutTest, KeepsHalfTheLesserFreeSideAsMarginUpTo24) {
  struct Row {
    std::int64_t width, height;
    double margin;
  };
  for (const Row& row :
       {Row{1920, 288, 0}, Row{1920, 289, 0}, Row{1920, 290, 1}, Row{1920, 335, 23}, Row{1920, 336, 24},
        Row{1920, 337, 24}, Row{30, 1000, 12}, Row{59, 1000, 24}, Row{58, 1000, 24}, Row{57, 1000, 23}}) {
    const RectDTO rect = rectOf(row.width, row.height, topLeft);
    EXPECT_EQ(rect.x, row.margin) << row.width << " x " << row.height;
    EXPECT_EQ(rect.y, row.margin) << row.width << " x " << row.height;
  }
}

TEST(CameraOverlayLayoutTest, TakesACanvasAsTwoByTwoAtLeast) {
  for (const SizeDTO& canvas : {SizeDTO{0, 0}, SizeDTO{1, 1}, SizeDTO{2, 2}, SizeDTO{-5, -5}})
    for (const CameraPosition position : {topLeft, topRight, bottomLeft, bottomRight})
      EXPECT_EQ(CameraOverlayLayout::rect(canvas, position, std::nullopt), (RectDTO{0, 0, 2, 2}));
}

TEST(CameraOverlayLayoutTest, APlacementTakesThePositionsPlaceAndIsNotRounded) {
  struct Row {
    RecordingCameraPlacementDTO placement;
    double x, y;
  };
  for (const Row& row :
       {Row{{0, 0}, 0, 0}, Row{{10000, 10000}, 1536, 792}, Row{{10000, 0}, 1536, 0}, Row{{0, 10000}, 0, 792},
        Row{{5000, 5000}, 768, 396}, Row{{1, 1}, 0.1536, 0.0792}, Row{{9999, 3333}, 1535.8464, 263.9736}})
    for (const CameraPosition position : {topLeft, bottomRight}) {
      const RectDTO rect = CameraOverlayLayout::rect({1920, 1080}, position, row.placement);
      EXPECT_DOUBLE_EQ(rect.x, row.x);
      EXPECT_DOUBLE_EQ(rect.y, row.y);
      EXPECT_EQ(rect.width, 384);
      EXPECT_EQ(rect.height, 288);
    }
}

} // namespace
} // namespace tessarin
