#include "editing/VideoEditCropPlan.hpp"

#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

constexpr AffineTransform upright{};
constexpr AffineTransform quarterTurn{0, 1, -1, 0, 0, 0}; // clockwise, and left of the origin
constexpr AffineTransform halfTurn{-1, 0, 0, -1, 1920, 1080};
constexpr NormalizedVideoCropDTO whole{0, 0, 1, 1};

struct Case {
  const char* name;
  double width;
  double height;
  AffineTransform transform;
  NormalizedVideoCropDTO crop;
  SizeDTO size;
};

TEST(VideoEditCropPlan, RoundsDownToEvenSizes) {
  const Case cases[] = {
      {"whole", 1920, 1080, upright, whole, {1920, 1080}},
      {"odd", 1921, 1081, upright, whole, {1920, 1080}},
      {"a part of a pixel", 1921.9, 1079.99, upright, whole, {1920, 1078}},
      {"half", 1920, 1080, upright, {0.5, 0.5, 0.5, 0.5}, {960, 540}},
      {"an odd half", 1922, 1082, upright, {0, 0, 0.5, 0.5}, {960, 540}},
      {"on its side", 1920, 1080, quarterTurn, whole, {1080, 1920}},
      {"on its side, cropped", 1920, 1080, quarterTurn, {0, 0, 0.5, 0.25}, {540, 480}},
      {"upside down", 1920, 1080, halfTurn, {0, 0, 1, 0.5}, {1920, 540}},
      {"scaled", 960, 540, {2, 0, 0, 2, 0, 0}, whole, {1920, 1080}},
      {"the smallest", 100, 100, upright, {0, 0, 0.02, 0.02}, {2, 2}},
      {"just below 4", 3.999, 3.999, upright, whole, {2, 2}},
  };
  for (const Case& each : cases) {
    const VideoEditCropPlan plan(each.width, each.height, each.transform, each.crop);
    EXPECT_EQ(plan.renderSize(), each.size) << each.name;
  }
}

TEST(VideoEditCropPlan, BringsTheUprightPictureToTheOrigin) {
  const std::pair<AffineTransform, AffineTransform> cases[] = {
      {upright, upright},
      {halfTurn, halfTurn},
      {{1, 0, 0, 1, 30, -40}, upright},
      {quarterTurn, {0, 1, -1, 0, 1080, 0}},
      {{0, -1, 1, 0, 5, 7}, {0, -1, 1, 0, 0, 1920}},
      {{-1, 0, 0, 1, 0, 0}, {-1, 0, 0, 1, 1920, 0}},
  };
  for (const auto& [preferred, expected] : cases) {
    const VideoEditCropPlan plan(1920, 1080, preferred, {0.25, 0.25, 0.5, 0.5});
    EXPECT_EQ(plan.transform(), expected);
    const RectDTO bounds = plan.transform().boundsOf({0, 0, 1920, 1080});
    EXPECT_EQ(bounds.x, 0);
    EXPECT_EQ(bounds.y, 0);
  }
}

TEST(VideoEditCropPlan, RefusesWhatLeavesNoPicture) {
  const double infinite = std::numeric_limits<double>::infinity();
  const double none = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {"no width", 0, 1080, upright, whole, {}},
      {"no height", 1920, 0, upright, whole, {}},
      {"less than none", -1920, 1080, upright, whole, {}},
      {"endless", infinite, 1080, upright, whole, {}},
      {"endlessly high", 1920, infinite, upright, whole, {}},
      {"not a number", none, 1080, upright, whole, {}},
      {"narrower than 2", 1.999, 1080, upright, whole, {}},
      {"lower than 2", 1920, 1.999, upright, whole, {}},
      {"cropped below 2 in width", 99, 1080, upright, {0, 0, 0.02, 1}, {}},
      {"cropped below 2 in height", 1920, 99, upright, {0, 0, 1, 0.02}, {}},
      {"no transform", 1920, 1080, {0, 0, 0, 0, 0, 0}, whole, {}},
      {"a transform of no number", 1920, 1080, {none, 0, 0, 1, 0, 0}, whole, {}},
      {"larger than any picture", 1e300, 1080, upright, whole, {}},
  };
  for (const Case& each : cases)
    EXPECT_EQ(failureOf<VideoEditExportError>(
                  [&] { VideoEditCropPlan(each.width, each.height, each.transform, each.crop); }),
              VideoEditExportError::invalidCrop)
        << each.name;
}

} // namespace
} // namespace tessarin
