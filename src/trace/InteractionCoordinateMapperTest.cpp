#include "trace/InteractionCoordinateMapper.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double largest = std::numeric_limits<double>::max();

using InteractionCoordinateMapper::topLeftNormalizedPoint;
using Point = NormalizedVideoPointDTO;

constexpr RectDTO rect = {100, 200, 400, 800};

TEST(InteractionCoordinateMapper, YieldsFractionsFromTheTopLeft) {
  EXPECT_EQ(topLeftNormalizedPoint({100, 200}, rect), (Point{0, 0}));
  EXPECT_EQ(topLeftNormalizedPoint({200, 800}, rect), (Point{0.25, 0.75}));
  EXPECT_EQ(topLeftNormalizedPoint({100.5, 200}, rect), (Point{0.00125, 0}));
}

TEST(InteractionCoordinateMapper, TakesTheEdgesForInside) {
  EXPECT_EQ(topLeftNormalizedPoint({500, 1000}, rect), (Point{1, 1}));
  EXPECT_EQ(topLeftNormalizedPoint({500, 200}, rect), (Point{1, 0}));
  EXPECT_EQ(topLeftNormalizedPoint({100, 1000}, rect), (Point{0, 1}));
}

TEST(InteractionCoordinateMapper, DropsPointsOutside) {
  for (const PointerLocation& location :
       {PointerLocation{501, 300}, PointerLocation{300, 1001}, PointerLocation{99, 300},
        PointerLocation{300, 199}, PointerLocation{500.001, 300}, PointerLocation{300, 199.999}})
    EXPECT_EQ(topLeftNormalizedPoint(location, rect), std::nullopt) << location.x << ' ' << location.y;
}

TEST(InteractionCoordinateMapper, MapsDisplaysLeftOfAndAboveTheFirst) {
  const RectDTO display = {-1920, -300, 1920, 1080};
  EXPECT_EQ(topLeftNormalizedPoint({-1920, -300}, display), (Point{0, 0}));
  EXPECT_EQ(topLeftNormalizedPoint({-960, 240}, display), (Point{0.5, 0.5}));
  EXPECT_EQ(topLeftNormalizedPoint({0, 780}, display), (Point{1, 1}));
  EXPECT_EQ(topLeftNormalizedPoint({1, 240}, display), std::nullopt);
}

TEST(InteractionCoordinateMapper, NeverYieldsMoreThanOneOnARoundedEdge) {
  const RectDTO fractional = {0.1, 0.1, 0.2, 0.2};
  ASSERT_GT((0.1 + 0.2 - 0.1) / 0.2, 1.0);
  EXPECT_EQ(topLeftNormalizedPoint({0.1 + 0.2, 0.1 + 0.2}, fractional), (Point{1, 1}));
}

TEST(InteractionCoordinateMapper, RefusesNumbersThatAreNotFinite) {
  for (const double bad : {infinity, -infinity, notANumber}) {
    EXPECT_EQ(topLeftNormalizedPoint({bad, 300}, rect), std::nullopt);
    EXPECT_EQ(topLeftNormalizedPoint({300, bad}, rect), std::nullopt);
    EXPECT_EQ(topLeftNormalizedPoint({300, 300}, {bad, 200, 400, 800}), std::nullopt);
    EXPECT_EQ(topLeftNormalizedPoint({300, 300}, {100, bad, 400, 800}), std::nullopt);
    EXPECT_EQ(topLeftNormalizedPoint({300, 300}, {100, 200, bad, 800}), std::nullopt);
    EXPECT_EQ(topLeftNormalizedPoint({300, 300}, {100, 200, 400, bad}), std::nullopt);
  }
  EXPECT_EQ(topLeftNormalizedPoint({largest, 300}, {largest, 200, largest, 800}), std::nullopt);
}

TEST(InteractionCoordinateMapper, RefusesRectanglesWithoutArea) {
  for (const RectDTO& bad : {RectDTO{100, 200, 0, 800}, RectDTO{100, 200, 400, 0},
                             RectDTO{300, 300, -400, 800}, RectDTO{300, 300, 400, -1}})
    EXPECT_EQ(topLeftNormalizedPoint({100, 200}, bad), std::nullopt);
}

} // namespace
} // namespace tessarin
