#include "model/AffineTransform.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

constexpr AffineTransform quarterTurn{0, 1, -1, 0, 0, 0}; // clockwise where y points down

TEST(AffineTransform, keepsARectangleWhenItIsTheIdentity) {
  EXPECT_EQ(AffineTransform{}.boundsOf({1, 2, 3, 4}), (RectDTO{1, 2, 3, 4}));
}

TEST(AffineTransform, turnsARectangleIntoAnUprightOne) {
  EXPECT_EQ(quarterTurn.boundsOf({0, 0, 640, 360}), (RectDTO{-360, 0, 360, 640}));
  EXPECT_EQ((AffineTransform{-1, 0, 0, -1, 0, 0}).boundsOf({0, 0, 640, 360}),
            (RectDTO{-640, -360, 640, 360}));
}

TEST(AffineTransform, appliesTheOtherAfterItself) {
  const auto both = quarterTurn.followedBy(AffineTransform::translation(360, 0));
  EXPECT_EQ(both, (AffineTransform{0, 1, -1, 0, 360, 0}));
  EXPECT_EQ(both.boundsOf({0, 0, 640, 360}), (RectDTO{0, 0, 360, 640}));
  const auto other = AffineTransform::translation(360, 0).followedBy(quarterTurn);
  EXPECT_EQ(other, (AffineTransform{0, 1, -1, 0, 0, 360}));
}

} // namespace
} // namespace tessarin
