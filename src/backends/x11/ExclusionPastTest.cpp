#include "backends/x11/ExclusionPast.hpp"

#include <gtest/gtest.h>

namespace tessarin::x11 {
namespace {

constexpr std::int64_t millisecond = 1'000'000;

TEST(PastPlaces, ForgetsEachPlaceAtItsEnd) {
  PastPlaces places;
  places.add({0, 0, 10, 10}, 0, 300 * millisecond);
  places.add({50, 0, 10, 10}, 0, 500 * millisecond);
  EXPECT_FALSE(places.forget(300 * millisecond - 1));
  EXPECT_EQ(places.rectangles().size(), 2U);
  EXPECT_TRUE(places.forget(300 * millisecond));
  EXPECT_EQ(places.rectangles(), (std::vector<PixelRect>{{50, 0, 10, 10}}));
  EXPECT_FALSE(places.forget(400 * millisecond));
  EXPECT_TRUE(places.forget(500 * millisecond));
  EXPECT_TRUE(places.rectangles().empty());
}

TEST(PastPlaces, TakesPlacesThatOverlapTogetherForAMoment) {
  PastPlaces places;
  places.add({0, 0, 10, 10}, 0, 300 * millisecond);
  places.add({5, 0, 10, 10}, 100 * millisecond, 400 * millisecond);
  EXPECT_EQ(places.rectangles(), (std::vector<PixelRect>{{0, 0, 15, 10}}));
  places.add({6, 0, 10, 10}, 100 * millisecond + 1, 401 * millisecond);
  EXPECT_EQ(places.rectangles().size(), 2U);
  EXPECT_FALSE(places.forget(399 * millisecond));
}

TEST(PastPlaces, KeepsToTheRectanglesOfTheLastMomentsWhileAWindowIsDragged) {
  PastPlaces places;
  for (int i = 0; i < 1000; ++i) {
    const auto now = i * 16 * millisecond;
    places.forget(now);
    places.add({i * 3, 0, 100, 100}, now, now + 300 * millisecond);
    EXPECT_LE(places.rectangles().size(), 5U);
  }
}

} // namespace
} // namespace tessarin::x11
