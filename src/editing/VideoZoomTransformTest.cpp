#include "editing/VideoZoomTransform.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

ZoomVideoEffectDTO zoomTo(NormalizedVideoPointDTO center, double scale) {
  ZoomVideoEffectDTO zoom = editTesting::zoom(); // from 1000 to 3000
  zoom.center = center;
  zoom.scale = scale;
  return zoom;
}

TEST(VideoZoomTransform, KeepsTheCenterWhereItIs) {
  const struct {
    NormalizedVideoPointDTO center;
    double scale;
    std::int64_t atMs;
    VideoZoomTransform expected;
  } cases[] = {
      {{0.5, 0.5}, 2, 2000, {2, -0.5, -0.5}},
      {{0, 0}, 4, 2000, {4, 0, 0}},
      {{1, 1}, 4, 2000, {4, -3, -3}},
      {{0.25, 0.75}, 2, 2000, {2, -0.25, -0.75}},
      {{0.25, 0.75}, 3, 1125, {2, -0.25, -0.75}}, // half of the way in
      {{0.25, 0.75}, 3, 2875, {2, -0.25, -0.75}}, // and of the way out
      {{0.25, 0.75}, 3, 1000, {1, 0, 0}},
      {{0.25, 0.75}, 3, 999, {1, 0, 0}},
      {{0.25, 0.75}, 3, 3000, {1, 0, 0}},
  };
  for (const auto& each : cases) {
    const VideoZoomTransform transform = fixedZoomTransform(zoomTo(each.center, each.scale), each.atMs);
    EXPECT_EQ(transform, each.expected) << each.atMs;
    const NormalizedVideoPointDTO center = transform.apply(each.center);
    EXPECT_NEAR(center.x, each.center.x, 1e-15);
    EXPECT_NEAR(center.y, each.center.y, 1e-15);
  }
}

TEST(VideoZoomTransform, MovesPixelsFromTheTopLeft) {
  const VideoZoomTransform transform{2, -0.25, -0.75};
  EXPECT_EQ(transform.pixelTransform({1000, 500}), (AffineTransform{2, 0, 0, 2, -250, -375}));
  EXPECT_EQ(VideoZoomTransform{}.pixelTransform({1000, 500}), AffineTransform{});
}

// The same movement counted from the bottom: a following zoom by h (1 - z - y), a fixed one by
// h ((1 - z) - center (1 - z)).
TEST(VideoZoomTransform, AgreesWithTheWayUpwards) {
  const SizeDTO size{1280, 720};
  const ZoomVideoEffectDTO zoom = zoomTo({0.3, 0.9}, 2.5);
  for (const std::int64_t atMs : {1000, 1100, 1200, 2000, 2900}) {
    const VideoZoomTransform transform = fixedZoomTransform(zoom, atMs);
    const double z = transform.scale;
    const double upwardsFollowing = 720 * (1 - z - transform.y);
    const double upwardsFixed = 720 * ((1 - z) - 0.9 * (1 - z));
    EXPECT_NEAR(upwardsFollowing, upwardsFixed, 1e-9);
    const AffineTransform pixels = transform.pixelTransform(size);
    for (const double y : {0.0, 100.5, 720.0})
      EXPECT_NEAR(pixels.d * y + pixels.ty, 720 - (z * (720 - y) + upwardsFixed), 1e-9);
  }
}

} // namespace
} // namespace tessarin
