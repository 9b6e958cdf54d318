#include "editing/PicturePlacement.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

constexpr AffineTransform asCoded{};
constexpr AffineTransform quarterTurn{0, 1, -1, 0, 0, 0}; // clockwise, and left of the origin
constexpr AffineTransform halfTurn{-1, 0, 0, -1, 0, 0};
constexpr NormalizedVideoCropDTO whole{0, 0, 1, 1};

TEST(PicturePlacement, TurnsPicturesUpright) {
  const struct {
    CompositionTrackForm form;
    AffineTransform transform;
    double width, height;
  } cases[] = {
      {{1920, 1080, asCoded}, asCoded, 1920, 1080},
      {{1920, 1080, {1, 0, 0, 1, 30, -40}}, asCoded, 1920, 1080},
      {{1920, 1080, quarterTurn}, {0, 1, -1, 0, 1080, 0}, 1080, 1920},
      {{1920, 1080, halfTurn}, {-1, 0, 0, -1, 1920, 1080}, 1920, 1080},
      {{640, 480, {2, 0, 0, 1.5, 0, 0}}, {2, 0, 0, 1.5, 0, 0}, 1280, 720},
  };
  for (const auto& each : cases) {
    const UprightPicture upright = uprightPicture(each.form);
    EXPECT_EQ(upright.transform, each.transform);
    EXPECT_EQ(upright.width, each.width);
    EXPECT_EQ(upright.height, each.height);
  }
}

TEST(PicturePlacement, CropsFromTheLowerLeft) {
  const struct {
    const char* name;
    CompositionTrackForm form;
    NormalizedVideoCropDTO crop;
    SizeDTO size;
    AffineTransform expected;
  } cases[] = {
      {"whole", {1920, 1080, asCoded}, whole, {1920, 1080}, asCoded},
      {"the middle", {1920, 1080, asCoded}, {0.25, 0.25, 0.5, 0.5}, {960, 540}, {1, 0, 0, 1, -480, -270}},
      // The column at the right and the row at the top are too much.
      {"odd", {1921, 1081, asCoded}, whole, {1920, 1080}, {1, 0, 0, 1, 0, -1}},
      {"an odd quarter", {1922, 1082, asCoded}, {0.5, 0.5, 0.5, 0.5}, {960, 540}, {1, 0, 0, 1, -961, -542}},
      {"the upper quarter", {1920, 1080, asCoded}, {0, 0, 1, 0.25}, {1920, 270}, asCoded},
      {"between pixels", {100, 100, asCoded}, {0.125, 0.125, 0.5, 0.5}, {50, 50}, {1, 0, 0, 1, -12.5, -12.5}},
      {"on its side", {1920, 1080, quarterTurn}, {0.5, 0, 0.5, 0.25}, {540, 480}, {0, 1, -1, 0, 540, 0}},
      {"upside down", {1920, 1080, halfTurn}, {0, 0.5, 1, 0.5}, {1920, 540}, {-1, 0, 0, -1, 1920, 540}},
      {"moved", {1920, 1080, {1, 0, 0, 1, 7, 9}}, {0.5, 0, 0.5, 1}, {960, 1080}, {1, 0, 0, 1, -960, 0}},
  };
  for (const auto& each : cases)
    EXPECT_EQ(contentPlacement(each.form, each.crop, each.size), each.expected) << each.name;
}

// Counted from the bottom the crop begins at H (1 - y - height), which comes to the bottom.
TEST(PicturePlacement, AgreesWithTheWayUpwards) {
  const NormalizedVideoCropDTO crop{0.1, 0.15, 0.62, 0.37};
  const SizeDTO size{793 & ~1, 266 & ~1};
  const AffineTransform placement = contentPlacement({1280, 720, asCoded}, crop, size);
  const double begin = 720 * (1 - crop.y - crop.height);
  for (const double y : {0.0, 33.0, 719.5})
    EXPECT_NEAR(placement.d * y + placement.ty, static_cast<double>(size.height) - (720 - y - begin), 1e-9);
  EXPECT_NEAR(placement.tx, -128, 1e-9);
}

TEST(PicturePlacement, FindsPlacesInTheCrop) {
  const NormalizedVideoCropDTO crop{0.25, 0.5, 0.5, 0.25};
  using Point = NormalizedVideoPointDTO;
  const std::pair<Point, std::optional<Point>> cases[] = {
      {{0.25, 0.5}, Point{0, 0}},    {{0.75, 0.75}, Point{1, 1}},   {{0.5, 0.5625}, Point{0.5, 0.25}},
      {{0.2499, 0.6}, std::nullopt}, {{0.7501, 0.6}, std::nullopt}, {{0.5, 0.4999}, std::nullopt},
      {{0.5, 0.7501}, std::nullopt},
  };
  for (const auto& [point, expected] : cases)
    EXPECT_EQ(pointInCrop(point, crop), expected) << point.x << ' ' << point.y;
}

} // namespace
} // namespace tessarin
