#include "pixels/PictureBuffers.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace tessarin::pixels {
namespace {

constexpr auto format = PixelFormat::bgra8Premultiplied;

TEST(PictureBuffers, DescribesWhatItHandsOut) {
  PictureBuffers buffers;
  const PictureBuffers::Sheet sheet = buffers.take(7, 3, format);
  EXPECT_EQ(sheet.canvas.width, 7);
  EXPECT_EQ(sheet.canvas.height, 3);
  EXPECT_EQ(sheet.canvas.stride, 28);
  EXPECT_EQ(sheet.canvas.format, format);
  const Picture picture = sheet.picture();
  EXPECT_EQ(picture.view.data, sheet.canvas.data);
  EXPECT_EQ(picture.view.format, format);
}

TEST(PictureBuffers, UsesMemoryAgainThatNobodyHolds) {
  PictureBuffers buffers;
  std::optional<Picture> held = buffers.take(64, 48, format).picture();
  const std::uint8_t* first = held->view.data;
  std::optional<Picture> copy = held;
  held.reset();
  const Picture second = buffers.take(64, 48, format).picture();
  EXPECT_NE(second.view.data, first); // the copy still shows the first one
  copy.reset();
  EXPECT_EQ(buffers.take(64, 48, format).canvas.data, first);
  EXPECT_EQ(buffers.take(60, 40, format).canvas.data, first); // it is large enough
}

TEST(PictureBuffers, HasRoomForEveryPixelAfterAnySize) {
  PictureBuffers buffers;
  for (const std::int32_t size : {8, 64, 63, 30, 512, 8, 9}) {
    const PictureBuffers::Sheet sheet = buffers.take(size, size, format);
    std::fill_n(sheet.canvas.data, sheet.canvas.stride * size, std::uint8_t{77});
    EXPECT_EQ(sheet.canvas.row(size - 1)[sheet.canvas.stride - 1], 77);
  }
}

TEST(PictureBuffers, KeepsPicturesBeyondItsOwnLife) {
  std::optional<PictureBuffers> buffers(std::in_place);
  const PictureBuffers::Sheet sheet = buffers->take(16, 16, format);
  sheet.canvas.data[16 * 16 * 4 - 1] = 42;
  const Picture picture = sheet.picture();
  buffers.reset();
  EXPECT_EQ(picture.view.data[16 * 16 * 4 - 1], 42);
}

TEST(PictureBuffers, HoldsAsManyAtOnceAsAreTaken) {
  PictureBuffers buffers;
  for (int round = 0; round < 3; ++round) {
    std::vector<Picture> pictures;
    std::set<const std::uint8_t*> places;
    for (int i = 0; i < 8; ++i) {
      pictures.push_back(buffers.take(32, 32, format).picture());
      places.insert(pictures.back().view.data);
    }
    EXPECT_EQ(places.size(), 8U);
  }
}

} // namespace
} // namespace tessarin::pixels
