#include "modules/media/PicturePool.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace tessarin::media {
namespace {

TEST(PicturePool, handsOutAsManyPicturesAsItsLimit) {
  PicturePool pool(6, 4, 2);
  auto first = pool.take();
  auto second = pool.take();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(pool.take(), nullptr);
  first.reset();
  EXPECT_NE(pool.take(), nullptr);
}

TEST(PicturePool, usesAPictureAgain) {
  PicturePool pool(6, 4, 2);
  auto first = pool.take();
  const I420Picture* const before = first.get();
  first.reset();
  EXPECT_EQ(pool.take().get(), before);
}

TEST(PicturePool, mayBeGoneBeforeItsPictures) {
  std::shared_ptr<I420Picture> picture;
  {
    PicturePool pool(6, 4, 1);
    picture = pool.take();
  }
  picture->planes().y[0] = 1;
  EXPECT_EQ(picture->width(), 6);
  EXPECT_EQ(picture->height(), 4);
}

TEST(PicturePool, givesRowsRoomAndAlignment) {
  PicturePool pool(130, 4, 1);
  const auto picture = pool.take();
  const pixels::I420Planes planes = picture->planes();
  EXPECT_EQ(planes.yStride, 192);
  EXPECT_EQ(planes.uStride, 128);
  EXPECT_EQ(planes.vStride, 128);
  for (const std::uint8_t* plane : {planes.y, planes.u, planes.v})
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(plane) % 64, 0U);
  EXPECT_GE(planes.u - planes.y, 4 * 192);
  EXPECT_GE(planes.v - planes.u, 2 * 128);
}

} // namespace
} // namespace tessarin::media
