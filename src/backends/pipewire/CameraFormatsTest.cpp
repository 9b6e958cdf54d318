#include "backends/pipewire/CameraFormats.hpp"

#include <gtest/gtest.h>

#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/pod/filter.h>

#include <array>
#include <optional>
#include <vector>

namespace tessarin::pipewire {
namespace {

struct Told {
  std::uint32_t subtype = SPA_MEDIA_SUBTYPE_raw;
  std::uint32_t format = SPA_VIDEO_FORMAT_YUY2;
  spa_rectangle size = {640, 480};
  std::uint32_t frameRate = 30;
  std::optional<std::uint32_t> matrix = std::nullopt;
  std::optional<std::uint32_t> range = std::nullopt;
  std::uint32_t type = SPA_MEDIA_TYPE_video;
};

class Pod {
 public:
  explicit Pod(const Told& told) {
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory_.data(), sizeof memory_);
    spa_pod_frame object{};
    const spa_fraction rate{told.frameRate, 1};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(told.type), SPA_FORMAT_mediaSubtype,
                        SPA_POD_Id(told.subtype), 0);
    if (told.subtype == SPA_MEDIA_SUBTYPE_raw) {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(told.format), 0);
    }
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&told.size),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate), 0);
    if (told.range) {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(*told.range), 0);
    }
    if (told.matrix) {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_colorMatrix, SPA_POD_Id(*told.matrix), 0);
    }
    spa_pod_builder_pop(&builder, &object);
  }
  const spa_pod* get() const { return reinterpret_cast<const spa_pod*>(memory_.data()); }

 private:
  std::array<std::uint64_t, 64> memory_{};
};

// The first of the camera's offers that the most wanted of our formats admits, as a server finds it.
std::optional<std::size_t> chosen(const std::vector<Told>& offers) {
  const auto formats = CameraParameters::formats();
  for (const auto* wanted : formats.pods()) {
    for (std::size_t i = 0; i < offers.size(); ++i) {
      std::array<std::uint64_t, 512> memory{};
      spa_pod_builder builder{};
      spa_pod_builder_init(&builder, memory.data(), sizeof memory);
      spa_pod* result = nullptr;
      if (spa_pod_filter(&builder, &result, Pod(offers[i]).get(), wanted) >= 0) {
        return i;
      }
    }
  }
  return std::nullopt;
}

Told raw(spa_rectangle size, std::uint32_t frameRate, std::uint32_t format = SPA_VIDEO_FORMAT_YUY2) {
  return {.format = format, .size = size, .frameRate = frameRate};
}
Told jpeg(spa_rectangle size, std::uint32_t frameRate) {
  return {.subtype = SPA_MEDIA_SUBTYPE_mjpg, .size = size, .frameRate = frameRate};
}

TEST(CameraFormats, PreferSizeAndSpeedAndThenPixels) {
  struct Case {
    std::vector<Told> offers;
    std::optional<std::size_t> expected;
  };
  const std::vector<Case> cases = {
      {{raw({640, 480}, 30), raw({1920, 1080}, 30)}, 1},
      {{jpeg({1920, 1080}, 30), raw({1920, 1080}, 30)}, 1},
      {{raw({1920, 1080}, 5), jpeg({1920, 1080}, 30)}, 1},
      {{raw({640, 480}, 30), jpeg({1280, 720}, 30)}, 1},
      {{raw({1280, 720}, 10), raw({640, 480}, 30)}, 1},
      {{raw({1280, 720}, 24), jpeg({1920, 1080}, 24)}, 1},
      {{raw({3840, 2160}, 30), raw({1920, 1080}, 60)}, 1},
      {{raw({320, 240}, 15), raw({640, 480}, 15)}, 1},
      {{raw({3840, 2160}, 30)}, 0},
      {{raw({2, 2}, 1)}, 0},
      {{jpeg({160, 120}, 5)}, 0},
      {{raw({8192, 8192}, 1)}, 0},
      {{raw({1, 1}, 30)}, std::nullopt},
      {{raw({8193, 8193}, 30)}, std::nullopt},
      {{raw({640, 480}, 30, SPA_VIDEO_FORMAT_RGB16)}, std::nullopt},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(chosen(cases[i].offers), cases[i].expected) << "case " << i;
  }
}

TEST(CameraFormats, TakeEveryCodingThatIsConverted) {
  const std::pair<std::uint32_t, CameraCoding> codings[] = {
      {SPA_VIDEO_FORMAT_YUY2, CameraCoding::yuy2},  {SPA_VIDEO_FORMAT_UYVY, CameraCoding::uyvy},
      {SPA_VIDEO_FORMAT_NV12, CameraCoding::nv12},  {SPA_VIDEO_FORMAT_I420, CameraCoding::i420},
      {SPA_VIDEO_FORMAT_BGRx, CameraCoding::bgrx},  {SPA_VIDEO_FORMAT_BGRA, CameraCoding::bgrx},
      {SPA_VIDEO_FORMAT_RGBx, CameraCoding::rgbx},  {SPA_VIDEO_FORMAT_RGBA, CameraCoding::rgbx},
      {SPA_VIDEO_FORMAT_RGB, CameraCoding::rgb},    {SPA_VIDEO_FORMAT_BGR, CameraCoding::bgr},
      {SPA_VIDEO_FORMAT_GRAY8, CameraCoding::gray8}};
  for (const auto& [name, coding] : codings) {
    const Told told = raw({1281, 721}, 30, name);
    EXPECT_EQ(chosen({told}), 0U) << name;
    const auto format = parseCameraFormat(Pod(told).get());
    ASSERT_TRUE(format) << name;
    EXPECT_EQ(*format, (CameraFormat{coding, 1281, 721, ColourMatrix::bt601, coding == CameraCoding::gray8}));
  }
  const auto format = parseCameraFormat(Pod(jpeg({1280, 720}, 30)).get());
  ASSERT_TRUE(format);
  EXPECT_EQ(*format, (CameraFormat{CameraCoding::jpeg, 1280, 720, ColourMatrix::bt601, false}));
}

TEST(CameraFormats, TellHowColoursAreMeant) {
  const auto parse = [](std::uint32_t matrix, std::uint32_t range, std::uint32_t format) {
    return *parseCameraFormat(Pod({.format = format, .matrix = matrix, .range = range}).get());
  };
  const auto full = parse(SPA_VIDEO_COLOR_MATRIX_BT709, SPA_VIDEO_COLOR_RANGE_0_255, SPA_VIDEO_FORMAT_NV12);
  EXPECT_EQ(full.matrix, ColourMatrix::bt709);
  EXPECT_TRUE(full.isFullRange);
  const auto limited =
      parse(SPA_VIDEO_COLOR_MATRIX_BT2020, SPA_VIDEO_COLOR_RANGE_16_235, SPA_VIDEO_FORMAT_NV12);
  EXPECT_EQ(limited.matrix, ColourMatrix::bt2020);
  EXPECT_FALSE(limited.isFullRange);
  const auto unknown =
      parse(SPA_VIDEO_COLOR_MATRIX_UNKNOWN, SPA_VIDEO_COLOR_RANGE_UNKNOWN, SPA_VIDEO_FORMAT_NV12);
  EXPECT_EQ(unknown.matrix, ColourMatrix::bt601);
  EXPECT_FALSE(unknown.isFullRange);
  EXPECT_FALSE(
      parse(SPA_VIDEO_COLOR_MATRIX_BT601, SPA_VIDEO_COLOR_RANGE_16_235, SPA_VIDEO_FORMAT_GRAY8).isFullRange);
}

TEST(CameraFormats, ThatAreNoneOfOursAreNotParsed) {
  EXPECT_FALSE(parseCameraFormat(nullptr));
  EXPECT_FALSE(parseCameraFormat(Pod({.format = SPA_VIDEO_FORMAT_RGB16}).get()));
  EXPECT_FALSE(parseCameraFormat(Pod({.subtype = SPA_MEDIA_SUBTYPE_h264}).get()));
  EXPECT_FALSE(parseCameraFormat(Pod({.type = SPA_MEDIA_TYPE_audio}).get()));
  EXPECT_FALSE(parseCameraFormat(Pod({.size = {1, 480}}).get()));
  EXPECT_TRUE(parseCameraFormat(Pod({.size = {2, 2}}).get()));
  EXPECT_TRUE(parseCameraFormat(Pod({.size = {8192, 8192}}).get()));
  EXPECT_FALSE(parseCameraFormat(Pod({.size = {8192, 8193}}).get()));
}

} // namespace
} // namespace tessarin::pipewire
