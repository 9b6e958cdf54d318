#include "editing/CSSGradientGeometry.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using CSSGradientGeometry::endpoints;

TEST(CSSGradientGeometry, RunsByTheAngle) {
  const struct {
    double angle;
    RectDTO extent;
    PixelPoint start, end;
  } cases[] = {
      {0, {0, 0, 1920, 1080}, {960, 1080}, {960, 0}},
      {90, {0, 0, 1920, 1080}, {0, 540}, {1920, 540}},
      {180, {0, 0, 1920, 1080}, {960, 0}, {960, 1080}},
      {270, {0, 0, 1920, 1080}, {1920, 540}, {0, 540}},
      {360, {0, 0, 1920, 1080}, {960, 1080}, {960, 0}},
      {45, {0, 0, 100, 100}, {0, 100}, {100, 0}},
      {135, {0, 0, 100, 100}, {0, 0}, {100, 100}},
      // Half of the sine by 200 and the cosine by 100: 50 + 43.30127, of which the sine and the cosine.
      {30, {0, 0, 200, 100}, {53.349365, 130.801270}, {146.650635, -30.801270}},
      {90, {10, 20, 40, 60}, {10, 50}, {50, 50}},
  };
  for (const auto& each : cases) {
    const auto points = endpoints(each.angle, each.extent);
    EXPECT_NEAR(points.start.x, each.start.x, 1e-6) << each.angle;
    EXPECT_NEAR(points.start.y, each.start.y, 1e-6) << each.angle;
    EXPECT_NEAR(points.end.x, each.end.x, 1e-6) << each.angle;
    EXPECT_NEAR(points.end.y, each.end.y, 1e-6) << each.angle;
  }
}

TEST(CSSGradientGeometry, RunsStraightAcrossAndStraightUp) {
  for (const RectDTO& extent : {RectDTO{0, 0, 1920, 1080}, RectDTO{0, 0, 1079, 3}, RectDTO{0, 0, 2, 7680}}) {
    for (const double across : {90.0, 270.0})
      EXPECT_EQ(endpoints(across, extent).start.y, endpoints(across, extent).end.y);
    for (const double up : {0.0, 180.0, 360.0})
      EXPECT_EQ(endpoints(up, extent).start.x, endpoints(up, extent).end.x);
  }
}

} // namespace
} // namespace tessarin
