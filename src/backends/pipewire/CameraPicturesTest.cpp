#include "backends/pipewire/CameraPictures.hpp"

#include "support/CameraPicture.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace tessarin::pipewire {
namespace {

using camera::ColourRules;
using camera::RawFormat;
using camera::RawPicture;
using camera::Rgb;

constexpr std::pair<RawFormat, CameraCoding> formats[] = {
    {RawFormat::yuy2, CameraCoding::yuy2}, {RawFormat::uyvy, CameraCoding::uyvy},
    {RawFormat::nv12, CameraCoding::nv12}, {RawFormat::i420, CameraCoding::i420},
    {RawFormat::bgrx, CameraCoding::bgrx}, {RawFormat::rgbx, CameraCoding::rgbx},
    {RawFormat::rgb, CameraCoding::rgb},   {RawFormat::gray8, CameraCoding::gray8}};

CameraCoding codingOf(RawFormat format) {
  return std::find_if(std::begin(formats), std::end(formats),
                      [&](const auto& f) { return f.first == format; })
      ->second;
}

CameraFormat formatOf(const RawPicture& picture, ColourRules rules) {
  return {codingOf(picture.format), picture.width, picture.height,
          rules.isBt709 ? ColourMatrix::bt709 : ColourMatrix::bt601,
          rules.isFullRange || picture.format == RawFormat::gray8};
}

Rgb rgbFromYuv(camera::Yuv yuv, ColourRules rules) {
  const double redWeight = rules.isBt709 ? 0.2126 : 0.299;
  const double blueWeight = rules.isBt709 ? 0.0722 : 0.114;
  const double luma = rules.isFullRange ? yuv.luma : (yuv.luma - 16) * 255 / 219;
  const double scale = rules.isFullRange ? 1 : 255.0 / 224;
  const double red = luma + (yuv.redChroma - 128) * scale * 2 * (1 - redWeight);
  const double blue = luma + (yuv.blueChroma - 128) * scale * 2 * (1 - blueWeight);
  const double green = (luma - redWeight * red - blueWeight * blue) / (1 - redWeight - blueWeight);
  const auto byte = [](double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
  };
  return {byte(red), byte(green), byte(blue)};
}

// What the pixel's bytes stand for, one pixel at a time.
Rgb expectedPixel(const RawPicture& picture, int x, int y, ColourRules rules) {
  const auto* row = picture.bytes.data() + static_cast<std::ptrdiff_t>(y) * picture.stride;
  const auto* pair = row + static_cast<std::ptrdiff_t>(x) / 2 * 4;
  const auto* chroma = picture.bytes.data() + static_cast<std::ptrdiff_t>(picture.height) * picture.stride +
                       static_cast<std::ptrdiff_t>(y) / 2 * picture.chromaStride();
  const auto chromaSize = static_cast<std::ptrdiff_t>(picture.chromaStride()) * picture.chromaHeight();
  const auto yuv = [&](int luma, int blue, int red) {
    return rgbFromYuv({static_cast<double>(luma), static_cast<double>(blue), static_cast<double>(red)},
                      rules);
  };
  switch (picture.format) {
  case RawFormat::yuy2:
    return yuv(pair[x % 2 * 2], pair[1], pair[3]);
  case RawFormat::uyvy:
    return yuv(pair[x % 2 * 2 + 1], pair[0], pair[2]);
  case RawFormat::nv12:
    return yuv(row[x], chroma[x / 2 * 2], chroma[x / 2 * 2 + 1]);
  case RawFormat::i420:
    return yuv(row[x], chroma[x / 2], chroma[chromaSize + x / 2]);
  case RawFormat::gray8:
    return {row[x], row[x], row[x]};
  case RawFormat::rgb:
    return {row[3 * x], row[3 * x + 1], row[3 * x + 2]};
  case RawFormat::rgbx:
    return {row[4 * x], row[4 * x + 1], row[4 * x + 2]};
  case RawFormat::bgrx:
    break;
  }
  return {row[4 * x + 2], row[4 * x + 1], row[4 * x]};
}

Rgb pixelOf(const Picture& picture, int x, int y) {
  const auto* pixel = picture.view.data + y * picture.view.stride + static_cast<std::ptrdiff_t>(x) * 4;
  return {pixel[2], pixel[1], pixel[0]};
}

int difference(Rgb a, Rgb b) {
  return std::max({std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue)});
}

std::optional<Picture> convertWhole(const RawPicture& picture, ColourRules rules) {
  PicturePool pool;
  const CameraBlock block{picture.bytes, picture.stride};
  return convertFrame(formatOf(picture, rules), std::span(&block, 1), pool);
}

struct Size {
  int width;
  int height;
};

class CameraPictures : public testing::TestWithParam<std::tuple<std::pair<RawFormat, CameraCoding>, Size>> {};

TEST_P(CameraPictures, AreThoseOfASlowConversionPixelByPixel) {
  const auto [format, size] = GetParam();
  for (const int padding : {0, 2, 60}) {
    for (const ColourRules rules : {ColourRules{false, false}, {false, true}, {true, false}, {true, true}}) {
      const auto raw = camera::paintBars(format.first, size.width, size.height, rules, padding);
      const auto picture = convertWhole(raw, rules);
      ASSERT_TRUE(picture);
      EXPECT_EQ(picture->view.width, size.width);
      EXPECT_EQ(picture->view.height, size.height);
      EXPECT_EQ(picture->view.format, PixelFormat::bgrx8);
      int worst = 0;
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          worst = std::max(worst, difference(pixelOf(*picture, x, y), expectedPixel(raw, x, y, rules)));
        }
      }
      EXPECT_LE(worst, 3) << "709 " << rules.isBt709 << " full " << rules.isFullRange << " padding "
                          << padding;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, CameraPictures,
                         testing::Combine(testing::ValuesIn(formats),
                                          testing::Values(Size{2, 2}, Size{3, 3}, Size{7, 5}, Size{64, 17},
                                                          Size{321, 241}, Size{1281, 19})));

TEST(CameraPicturesColours, AreTheBarsThatTheCameraSaw) {
  for (const auto& [format, coding] : formats) {
    if (format == RawFormat::gray8) {
      continue;
    }
    for (const ColourRules rules : {ColourRules{false, false}, {false, true}, {true, false}, {true, true}}) {
      const auto picture = convertWhole(camera::paintBars(format, 320, 40, rules), rules);
      ASSERT_TRUE(picture);
      for (int bar = 0; bar < 8; ++bar) {
        const int x = bar * 40 + 20;
        EXPECT_LE(difference(pixelOf(*picture, x, 20), camera::barColour(x, 320)), 4)
            << static_cast<int>(coding) << " bar " << bar;
      }
    }
  }
}

TEST(CameraPicturesColours, OfGreyInLimitedRangeReachBlackAndWhite) {
  const std::vector<std::uint8_t> grey = {16, 235, 126, 126};
  const CameraBlock block{grey, 2};
  PicturePool pool;
  const CameraFormat format{CameraCoding::gray8, 2, 2, ColourMatrix::bt601, false};
  const auto picture = convertFrame(format, std::span(&block, 1), pool);
  ASSERT_TRUE(picture);
  EXPECT_LE(difference(pixelOf(*picture, 0, 0), {0, 0, 0}), 1);
  EXPECT_LE(difference(pixelOf(*picture, 1, 0), {255, 255, 255}), 1);
  EXPECT_LE(difference(pixelOf(*picture, 0, 1), {128, 128, 128}), 1);
}

// The last row needs no padding; a byte less than that is no picture.
TEST(CameraPicturesMemory, MustHoldEveryRow) {
  for (const auto& [format, coding] : formats) {
    for (const int padding : {0, 6}) {
      const bool isPlanar = format == RawFormat::nv12 || format == RawFormat::i420;
      auto raw = camera::paintBars(format, 7, 5, {}, padding);
      const int lastRow = !isPlanar ? camera::naturalStride(format, 7) : format == RawFormat::nv12 ? 8 : 4;
      const int lastStride = isPlanar ? raw.chromaStride() : raw.stride;
      raw.bytes.resize(raw.bytes.size() - static_cast<std::size_t>(lastStride - lastRow));
      raw.bytes.shrink_to_fit();
      EXPECT_TRUE(convertWhole(raw, {})) << static_cast<int>(coding);
      raw.bytes.pop_back();
      raw.bytes.shrink_to_fit();
      EXPECT_FALSE(convertWhole(raw, {})) << static_cast<int>(coding);
    }
  }
}

// Memory whose last byte is the last before a page that nobody may touch.
class GuardedBytes {
 public:
  explicit GuardedBytes(const std::vector<std::uint8_t>& bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto room = (bytes.size() + page - 1) / page * page;
    size_ = room + page;
    pages_ = static_cast<std::uint8_t*>(
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (pages_ == MAP_FAILED || mprotect(pages_ + room, page, PROT_NONE) != 0) {
      throw std::runtime_error("no guarded memory");
    }
    auto* place = pages_ + room - bytes.size();
    std::copy(bytes.begin(), bytes.end(), place);
    bytes_ = {place, bytes.size()};
  }
  ~GuardedBytes() { munmap(pages_, size_); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  std::span<const std::uint8_t> get() const { return bytes_; }

 private:
  std::uint8_t* pages_ = nullptr;
  std::size_t size_ = 0;
  std::span<const std::uint8_t> bytes_;
};

TEST(CameraPicturesMemory, IsNotReadBehindItsEnd) {
  for (const auto& [format, coding] : formats) {
    for (const ColourRules rules : {ColourRules{false, false}, {true, false}}) {
      for (const int width : {2, 3, 15, 17, 31, 33, 63, 65, 127, 129, 641}) {
        for (const int height : {2, 3, 9}) {
          const auto raw = camera::paintBars(format, width, height, rules);
          const GuardedBytes bytes(raw.bytes);
          const CameraBlock block{bytes.get(), raw.stride};
          PicturePool pool;
          const auto picture = convertFrame(formatOf(raw, rules), std::span(&block, 1), pool);
          ASSERT_TRUE(picture) << static_cast<int>(coding) << " " << width << " x " << height;
          EXPECT_LE(difference(pixelOf(*picture, width - 1, height - 1),
                               expectedPixel(raw, width - 1, height - 1, rules)),
                    3);
        }
      }
    }
  }
}

TEST(CameraPicturesMemory, WithoutAStrideHasRowsThatFollowOneAnother) {
  for (const auto& [format, coding] : formats) {
    const auto raw = camera::paintBars(format, 65, 9, {});
    const CameraBlock block{raw.bytes, 0};
    PicturePool pool;
    const auto picture = convertFrame(formatOf(raw, {}), std::span(&block, 1), pool);
    ASSERT_TRUE(picture) << static_cast<int>(coding);
    EXPECT_LE(difference(pixelOf(*picture, 64, 8), expectedPixel(raw, 64, 8, {})), 3);
  }
}

TEST(CameraPicturesMemory, MayBeABlockForEachPlane) {
  for (const auto format : {RawFormat::nv12, RawFormat::i420}) {
    const auto raw = camera::paintBars(format, 65, 33, {}, 14);
    const auto lumaSize = static_cast<std::size_t>(raw.stride) * 33;
    const auto chromaSize = static_cast<std::size_t>(raw.chromaStride()) * 17;
    const std::vector<std::uint8_t> luma(raw.bytes.begin(), raw.bytes.begin() + lumaSize);
    const std::vector<std::uint8_t> first(raw.bytes.begin() + lumaSize,
                                          raw.bytes.begin() + lumaSize + chromaSize);
    const std::vector<std::uint8_t> second(raw.bytes.begin() + lumaSize + chromaSize, raw.bytes.end());
    std::vector<CameraBlock> blocks = {{luma, raw.stride}, {first, raw.chromaStride()}};
    if (format == RawFormat::i420) {
      blocks.push_back({second, raw.chromaStride()});
    }
    PicturePool pool;
    const auto picture = convertFrame(formatOf(raw, {}), blocks, pool);
    ASSERT_TRUE(picture);
    for (const auto& [x, y] : {std::pair(0, 0), {64, 32}, {31, 16}}) {
      EXPECT_LE(difference(pixelOf(*picture, x, y), expectedPixel(raw, x, y, {})), 3);
    }
    blocks.back().bytes = blocks.back().bytes.first(raw.chromaStride() * std::size_t{15});
    EXPECT_FALSE(convertFrame(formatOf(raw, {}), blocks, pool));
  }
}

TEST(CameraPicturesMemory, ThatMakesNoSenseIsRefused) {
  const std::vector<std::uint8_t> bytes(1000, 7);
  PicturePool pool;
  const auto convertWith = [&](CameraCoding coding, int width, int height, int stride) {
    const CameraBlock block{bytes, stride};
    return convertFrame({coding, width, height, ColourMatrix::bt601, false}, std::span(&block, 1), pool)
        .has_value();
  };
  EXPECT_TRUE(convertWith(CameraCoding::bgrx, 10, 25, 40));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, 10, 25, 39));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, 10, 25, -40));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, 10, 26, 40));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, 0, 10, 40));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, 10, 0, 40));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, -10, -10, 40));
  EXPECT_FALSE(convertWith(CameraCoding::bgrx, 2'000'000'000, 2'000'000'000, 2'000'000'000));
  EXPECT_FALSE(convertWith(CameraCoding::nv12, 8193, 2, 0));
  EXPECT_FALSE(convertWith(CameraCoding::i420, 10, 10, 2'000'000'000));
  EXPECT_FALSE(convertWith(CameraCoding::jpeg, 10, 10, 40));
  EXPECT_FALSE(convertFrame({}, {}, pool));
}

TEST(PicturePool, UsesMemoryAgainOnlyWhenItsPictureIsGone) {
  PicturePool pool;
  auto first = pool.memory(4096);
  auto second = pool.memory(4096);
  EXPECT_NE(first, second);
  const auto* place = first.get();
  first.reset();
  EXPECT_EQ(pool.memory(4096).get(), place);
}

TEST(PicturePool, KeepsNoMemoryOfAnotherSize) {
  PicturePool pool;
  const auto small = pool.memory(16);
  const auto large = pool.memory(1 << 20);
  std::memset(large.get(), 1, 1 << 20);
  std::memset(small.get(), 2, 16);
  EXPECT_EQ(large.get()[(1 << 20) - 1], 1);
}

TEST(PicturePool, MayGoBeforeItsPictures) {
  auto pool = std::make_unique<PicturePool>();
  const auto memory = pool->memory(64);
  pool.reset();
  std::memset(memory.get(), 3, 64);
  EXPECT_EQ(memory.get()[63], 3);
}

} // namespace
} // namespace tessarin::pipewire
