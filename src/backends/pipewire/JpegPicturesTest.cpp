#include "backends/pipewire/JpegPictures.hpp"

#include "support/CameraJpeg.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace tessarin::pipewire {
namespace {

using camera::JpegSampling;
using camera::RawFormat;

using Bytes = std::vector<std::uint8_t>;

Bytes jpeg(int width, int height, JpegSampling sampling = JpegSampling::s422) {
  return camera::jpegOf(camera::paintBars(RawFormat::rgb, width, height, {}), sampling);
}

class JpegPictures : public testing::Test {
 protected:
  std::optional<Picture> read(const Bytes& bytes) { return reader_.read(bytes, pool_); }

  // Of the middles of the bars, against the colours that went in.
  static int worstBar(const Picture& picture, bool isGrey = false) {
    int worst = 0;
    for (int bar = 0; bar < 8; ++bar) {
      const int x = (2 * bar + 1) * picture.view.width / 16;
      const auto* pixel = picture.view.data + picture.view.height / 2 * picture.view.stride +
                          static_cast<std::ptrdiff_t>(x) * 4;
      const auto colour = camera::barColour(x, picture.view.width);
      const auto luma =
          static_cast<int>(std::lround(0.299 * colour.red + 0.587 * colour.green + 0.114 * colour.blue));
      worst = std::max({worst, std::abs(pixel[2] - (isGrey ? luma : colour.red)),
                        std::abs(pixel[1] - (isGrey ? luma : colour.green)),
                        std::abs(pixel[0] - (isGrey ? luma : colour.blue))});
    }
    return worst;
  }

 private:
  JpegReader reader_;
  PicturePool pool_;
};

TEST_F(JpegPictures, HaveTheirColoursHoweverChromaIsSampled) {
  for (const auto sampling : {JpegSampling::s444, JpegSampling::s422, JpegSampling::s420}) {
    const auto picture = read(jpeg(640, 48, sampling));
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->view.width, 640);
    EXPECT_EQ(picture->view.height, 48);
    EXPECT_LE(worstBar(*picture), 6) << static_cast<int>(sampling);
  }
  const auto grey = read(jpeg(640, 48, JpegSampling::gray));
  ASSERT_TRUE(grey);
  EXPECT_LE(worstBar(*grey, true), 4);
}

TEST_F(JpegPictures, MayHaveOddSizes) {
  const auto picture = read(jpeg(1281, 721, JpegSampling::s420));
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->view.width, 1281);
  EXPECT_EQ(picture->view.height, 721);
  EXPECT_LE(worstBar(*picture), 6);
}

// Cameras leave out the tables that everybody knows.
TEST_F(JpegPictures, NeedNoTablesOfTheirOwn) {
  auto bytes = jpeg(320, 240);
  const std::size_t whole = bytes.size();
  for (std::size_t i = 2; i + 3 < bytes.size() && bytes[i] == 0xFF && bytes[i + 1] != 0xDA;) {
    const std::size_t length = 2 + bytes[i + 2] * std::size_t{256} + bytes[i + 3];
    if (bytes[i + 1] == 0xC4) {
      bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(i),
                  bytes.begin() + static_cast<std::ptrdiff_t>(i + length));
    } else {
      i += length;
    }
  }
  ASSERT_LT(bytes.size(), whole - 300);
  const auto picture = read(bytes);
  ASSERT_TRUE(picture);
  EXPECT_LE(worstBar(*picture), 6);
}

TEST_F(JpegPictures, MayHavePaddingBehindThem) {
  auto bytes = jpeg(320, 240);
  bytes.resize(bytes.size() + 5000, 0);
  EXPECT_TRUE(read(bytes));
}

TEST_F(JpegPictures, ThatAreTornAreNone) {
  const auto whole = jpeg(160, 120);
  for (std::size_t size = 0; size + 2 < whole.size(); size += 7) {
    const Bytes torn(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(read(torn)) << size;
  }
  EXPECT_TRUE(read(whole)) << "the reader goes on with the next one";
}

TEST_F(JpegPictures, ThatAreNoiseAreNone) {
  Bytes noise(20000);
  std::uint32_t state = 1;
  for (auto& byte : noise) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<std::uint8_t>(state >> 24U);
  }
  EXPECT_FALSE(read(noise));
  EXPECT_FALSE(read({}));
  EXPECT_FALSE(read({0xFF, 0xD8}));
  EXPECT_FALSE(read({0xFF, 0xD8, 0xFF, 0xD9}));
}

// Whatever the bytes are, the answer is a picture of the size told or none.
TEST_F(JpegPictures, WithAnyByteChangedDoNoHarm) {
  const auto whole = jpeg(64, 48);
  int good = 0;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    auto damaged = whole;
    damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ (1U << (i % 8)));
    if (const auto picture = read(damaged)) {
      ++good;
      EXPECT_LE(picture->view.width, largestCameraSide);
      EXPECT_LE(picture->view.height, largestCameraSide);
    }
  }
  EXPECT_GT(good, 0);
  EXPECT_LT(good, static_cast<int>(whole.size()));
}

TEST_F(JpegPictures, MustNotBeTooLarge) {
  auto bytes = jpeg(64, 48);
  for (std::size_t i = 2; i + 8 < bytes.size(); ++i) {
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0) {
      bytes[i + 7] = 8193 >> 8; // the width
      bytes[i + 8] = 8193 & 0xFF;
      break;
    }
  }
  EXPECT_FALSE(read(bytes));
}

} // namespace
} // namespace tessarin::pipewire
