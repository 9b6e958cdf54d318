#include "pixels/Mosaic.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace tessarin::pixels {
namespace {

int squareOf(int pixel, double side, double center) {
  return static_cast<int>(std::floor((pixel + 0.5 - center) / side + 0.5 + 1e-9));
}

// The mean of all pixels of the picture that are in the same square.
int meanAt(const TestPicture& picture, int width, int height, const MosaicGrid& grid, int x, int y,
           int channel) {
  int sum = 0;
  int count = 0;
  for (int line = 0; line < height; ++line)
    for (int column = 0; column < width; ++column)
      if (squareOf(column, grid.side, grid.centerX) == squareOf(x, grid.side, grid.centerX) &&
          squareOf(line, grid.side, grid.centerY) == squareOf(y, grid.side, grid.centerY)) {
        sum += picture.pixel(column, line)[channel];
        ++count;
      }
  return static_cast<int>(std::floor(sum / double(count) + 0.5));
}

const MosaicGrid grids[] = {{4, 9, 7},      {4, 8.5, 7.5}, {5, 9.25, 7.75}, {2.6, 3, 4},
                            {1, 9, 7},      {1, 9.5, 7.5}, {1.5, 0, 0},     {100, 9, 7},
                            {7, -50.3, 80}, {16, 18, 14},  {3, 1e6, -1e6}};

TEST(Mosaic, GivesEachSquareTheMeanOfItsPixels) {
  Mosaic mosaic; // one for all, so that what it keeps is used again
  for (const MosaicGrid& grid : grids)
    for (const PixelArea& area :
         {PixelArea{0, 0, 19, 15}, PixelArea{3, 2, 14, 11}, PixelArea{18, 14, 19, 15}}) {
      const TestPicture picture(19, 15, 1, 4, 131);
      TestPicture drawn(area.width(), area.height(), 3, 8, 132);
      mosaic.draw(picture.view(), area, grid, drawn.canvas());
      for (int y = area.top; y < area.bottom; ++y)
        for (int x = area.left; x < area.right; ++x)
          for (int channel = 0; channel < 4; ++channel)
            ASSERT_EQ(drawn.pixel(x - area.left, y - area.top)[channel],
                      meanAt(picture, 19, 15, grid, x, y, channel))
                << grid.side << " around " << grid.centerX << " at " << x << "," << y;
    }
}

TEST(Mosaic, HasASquareAroundItsCentre) {
  TestPicture picture(12, 8, 0, 0, 133);
  TestPicture drawn(12, 8, 0, 0, 134);
  Mosaic().draw(picture.view(), {0, 0, 12, 8}, {4, 6, 4}, drawn.canvas());
  for (int y = 2; y < 6; ++y)
    for (int x = 4; x < 8; ++x)
      EXPECT_TRUE(std::equal(drawn.pixel(x, y), drawn.pixel(x, y) + 4, drawn.pixel(4, 2)));
  EXPECT_FALSE(std::equal(drawn.pixel(4, 2), drawn.pixel(4, 2) + 4, drawn.pixel(3, 2)));
  EXPECT_FALSE(std::equal(drawn.pixel(4, 2), drawn.pixel(4, 2) + 4, drawn.pixel(8, 2)));
  EXPECT_FALSE(std::equal(drawn.pixel(4, 2), drawn.pixel(4, 2) + 4, drawn.pixel(4, 1)));
  EXPECT_FALSE(std::equal(drawn.pixel(4, 2), drawn.pixel(4, 2) + 4, drawn.pixel(4, 6)));
}

TEST(Mosaic, DrawsInPlaceAndLeavesTheRest) {
  const PixelArea area{3, 2, 14, 11};
  for (const MosaicGrid& grid : grids) {
    const TestPicture picture(19, 15, 1, 4, 135);
    TestPicture expected = picture;
    TestPicture inPlace = picture;
    Mosaic().draw(picture.view(), area, grid, partOf(expected.canvas(), area));
    Mosaic().draw(inPlace.view(), area, grid, partOf(inPlace.canvas(), area));
    EXPECT_EQ(inPlace.bytes(), expected.bytes());
    for (int y = 0; y < 15; ++y)
      for (int x = 0; x < 19; ++x)
        if (x < 3 || x >= 14 || y < 2 || y >= 11) {
          ASSERT_TRUE(std::equal(picture.pixel(x, y), picture.pixel(x, y) + 4, inPlace.pixel(x, y)));
        }
  }
}

TEST(Mosaic, CopiesWhatIsNotFinite) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  const double infinite = std::numeric_limits<double>::infinity();
  for (const MosaicGrid& grid :
       {MosaicGrid{none, 1, 1}, MosaicGrid{4, none, 1}, MosaicGrid{4, 1, infinite}}) {
    const TestPicture picture(6, 5, 0, 0, 136);
    TestPicture drawn(6, 5, 0, 0, 137);
    Mosaic().draw(picture.view(), {0, 0, 6, 5}, grid, drawn.canvas());
    EXPECT_EQ(drawn.bytes(), TestPicture(picture).bytes());
  }
}

TEST(Mosaic, TakesLongLinesAndLargeSquares) {
  for (const auto& [width, height] : {std::pair(7680, 2), std::pair(2, 7680), std::pair(1, 1)})
    for (const double side : {0.0, 3.0, 1e12}) {
      const TestPicture picture(width, height, 0, 0, 138);
      TestPicture drawn(width, height, 0, 0, 139);
      Mosaic().draw(picture.view(), {0, 0, width, height}, {side, width / 2.0, height / 2.0}, drawn.canvas());
      if (side > 3) {
        EXPECT_TRUE(std::equal(drawn.pixel(0, 0), drawn.pixel(0, 0) + 4, drawn.pixel(width - 1, height - 1)));
      } else if (side == 0) {
        EXPECT_EQ(drawn.bytes(), TestPicture(picture).bytes());
      }
    }
}

} // namespace
} // namespace tessarin::pixels
