#include "backends/x11/ExclusionRegion.hpp"

#include <gtest/gtest.h>

#include <array>

namespace tessarin::x11 {
namespace {

// Every operation against a plain grid of bits, on which it is obvious.
constexpr std::int32_t side = 12;
using Grid = std::array<std::array<bool, side>, side>;

Grid gridOf(const Region& region) {
  Grid grid{};
  for (const auto& rectangle : region.rectangles()) {
    for (auto y = rectangle.y; y < rectangle.bottom(); ++y) {
      for (auto x = rectangle.x; x < rectangle.right(); ++x) {
        auto& cell = grid.at(static_cast<std::size_t>(y)).at(static_cast<std::size_t>(x));
        EXPECT_FALSE(cell) << "rectangles overlap at " << x << "," << y;
        cell = true;
      }
    }
  }
  return grid;
}

template<class Operation> Grid combined(const Grid& a, const Grid& b, Operation operation) {
  Grid result{};
  for (std::size_t y = 0; y < side; ++y) {
    for (std::size_t x = 0; x < side; ++x) {
      result.at(y).at(x) = operation(a.at(y).at(x), b.at(y).at(x));
    }
  }
  return result;
}

TEST(Region, AgreesWithAGridOfBitsForEveryPositionOfARectangleAgainstAShape) {
  Region shape(PixelRect{2, 2, 6, 3});
  shape.add(PixelRect{4, 4, 3, 6});
  shape.add(PixelRect{9, 0, 2, 2});
  const auto shapeGrid = gridOf(shape);
  for (std::int32_t y = 0; y < side; ++y) {
    for (std::int32_t x = 0; x < side; ++x) {
      for (const auto& [width, height] : {std::pair{1, 1}, {3, 2}, {12, 1}, {1, 12}, {5, 7}}) {
        const auto rectangle = PixelRect{x, y, width, height}.intersection({0, 0, side, side});
        const auto rectangleGrid = gridOf(Region(rectangle));
        auto sum = shape;
        sum.add(rectangle);
        EXPECT_EQ(gridOf(sum), combined(shapeGrid, rectangleGrid, std::logical_or<>()));
        auto difference = shape;
        difference.subtract(rectangle);
        const auto left = combined(shapeGrid, rectangleGrid, [](bool a, bool b) { return a && !b; });
        EXPECT_EQ(gridOf(difference), left);
        const auto common = combined(shapeGrid, rectangleGrid, std::logical_and<>());
        EXPECT_EQ(gridOf(shape.intersection(rectangle)), common);
        EXPECT_EQ(gridOf(shape.intersection(Region(rectangle))), common);
        EXPECT_EQ(shape.intersects(rectangle), common != Grid{});
        EXPECT_EQ(shape.contains(rectangle), common == rectangleGrid);
      }
    }
  }
}

TEST(Region, HoldsNothingOfEmptyRectangles) {
  Region region;
  region.add(PixelRect{3, 3, 0, 5});
  region.add(PixelRect{3, 3, 5, -1});
  EXPECT_TRUE(region.isEmpty());
  EXPECT_EQ(region.extents(), PixelRect());
}

TEST(Region, HasTheExtentsOfAllItsRectangles) {
  Region region(PixelRect{2, 9, 1, 1});
  region.add(PixelRect{7, 3, 2, 2});
  EXPECT_EQ(region.extents(), (PixelRect{2, 3, 7, 7}));
  EXPECT_EQ(enclosing({}, {1, 2, 3, 4}), (PixelRect{1, 2, 3, 4}));
}

} // namespace
} // namespace tessarin::x11
