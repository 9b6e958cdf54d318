#include "backends/pipewire/CameraFormats.hpp"

#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/pod/parser.h>

#include <array>
#include <utility>

namespace tessarin::pipewire {

namespace {

struct Coding {
  std::uint32_t name;
  CameraCoding coding;
};

// The most wanted first: what needs the least work and keeps the most colour.
constexpr std::array<Coding, 11> codings = {{{SPA_VIDEO_FORMAT_YUY2, CameraCoding::yuy2},
                                             {SPA_VIDEO_FORMAT_NV12, CameraCoding::nv12},
                                             {SPA_VIDEO_FORMAT_I420, CameraCoding::i420},
                                             {SPA_VIDEO_FORMAT_UYVY, CameraCoding::uyvy},
                                             {SPA_VIDEO_FORMAT_BGRx, CameraCoding::bgrx},
                                             {SPA_VIDEO_FORMAT_BGRA, CameraCoding::bgrx},
                                             {SPA_VIDEO_FORMAT_RGBx, CameraCoding::rgbx},
                                             {SPA_VIDEO_FORMAT_RGBA, CameraCoding::rgbx},
                                             {SPA_VIDEO_FORMAT_RGB, CameraCoding::rgb},
                                             {SPA_VIDEO_FORMAT_BGR, CameraCoding::bgr},
                                             {SPA_VIDEO_FORMAT_GRAY8, CameraCoding::gray8}}};

struct Tier {
  spa_rectangle smallest;
  spa_rectangle largest;
  spa_fraction slowest;
  spa_fraction fastest;
};

constexpr std::uint32_t side = static_cast<std::uint32_t>(largestCameraSide);
constexpr spa_rectangle wantedSize = {1920, 1080};
constexpr spa_fraction wantedRate = {30, 1};
constexpr std::array<Tier, 4> tiers = {{{wantedSize, wantedSize, {24, 1}, {60, 1}},
                                        {{1280, 720}, {1920, 1200}, {24, 1}, {60, 1}},
                                        {{640, 480}, {4096, 2304}, {15, 1}, {60, 1}},
                                        {{2, 2}, {side, side}, {0, 1}, {1000, 1}}}};

void addFormat(spa_pod_builder& builder, const Tier& tier, bool isRaw) {
  spa_pod_frame object{};
  spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                      SPA_FORMAT_mediaSubtype,
                      SPA_POD_Id(isRaw ? SPA_MEDIA_SUBTYPE_raw : SPA_MEDIA_SUBTYPE_mjpg), 0);
  if (isRaw) {
    spa_pod_frame choice{};
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_format, 0);
    spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
    spa_pod_builder_id(&builder, codings[0].name); // the first value is the default
    for (const auto& coding : codings) {
      spa_pod_builder_id(&builder, coding.name);
    }
    spa_pod_builder_pop(&builder, &choice);
  }
  const auto size = tier.largest.width < wantedSize.width ? tier.largest : wantedSize;
  spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size,
                      SPA_POD_CHOICE_RANGE_Rectangle(&size, &tier.smallest, &tier.largest),
                      SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_CHOICE_RANGE_Fraction(&wantedRate, &tier.slowest, &tier.fastest), 0);
  spa_pod_builder_pop(&builder, &object);
}

void addBuffers(spa_pod_builder& builder) {
  spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
                             SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(4, 2, 16),
                             SPA_PARAM_BUFFERS_dataType,
                             SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd)));
}

void addHeader(spa_pod_builder& builder) {
  spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                             SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size,
                             SPA_POD_Int(static_cast<std::int32_t>(sizeof(spa_meta_header))));
}

ColourMatrix matrixOf(std::uint32_t matrix) {
  switch (matrix) {
  case SPA_VIDEO_COLOR_MATRIX_BT709:
    return ColourMatrix::bt709;
  case SPA_VIDEO_COLOR_MATRIX_BT2020:
    return ColourMatrix::bt2020;
  default:
    return ColourMatrix::bt601;
  }
}

} // namespace

CameraParameters CameraParameters::formats() {
  CameraParameters parameters;
  parameters.memory_.resize(1024);
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, parameters.memory_.data(),
                       static_cast<std::uint32_t>(parameters.memory_.size() * sizeof(std::uint64_t)));
  for (const auto& tier : tiers) {
    for (const bool isRaw : {true, false}) {
      parameters.positions_.push_back(builder.state.offset / sizeof(std::uint64_t));
      addFormat(builder, tier, isRaw);
    }
  }
  return parameters;
}

CameraParameters CameraParameters::buffers() {
  CameraParameters parameters;
  parameters.memory_.resize(64);
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, parameters.memory_.data(),
                       static_cast<std::uint32_t>(parameters.memory_.size() * sizeof(std::uint64_t)));
  addBuffers(builder);
  parameters.positions_ = {0, builder.state.offset / sizeof(std::uint64_t)};
  addHeader(builder);
  return parameters;
}

std::vector<const spa_pod*> CameraParameters::pods() const {
  std::vector<const spa_pod*> result;
  for (const auto position : positions_) {
    result.push_back(reinterpret_cast<const spa_pod*>(memory_.data() + position));
  }
  return result;
}

std::optional<CameraFormat> parseCameraFormat(const spa_pod* format) {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;
  spa_rectangle size{};
  std::uint32_t name = SPA_VIDEO_FORMAT_UNKNOWN;
  std::uint32_t range = SPA_VIDEO_COLOR_RANGE_UNKNOWN;
  std::uint32_t matrix = SPA_VIDEO_COLOR_MATRIX_UNKNOWN;
  if (!format || spa_format_parse(format, &type, &subtype) < 0 || type != SPA_MEDIA_TYPE_video ||
      spa_pod_parse_object(format, SPA_TYPE_OBJECT_Format, nullptr, SPA_FORMAT_VIDEO_size,
                           SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_format, SPA_POD_OPT_Id(&name),
                           SPA_FORMAT_VIDEO_colorRange, SPA_POD_OPT_Id(&range), SPA_FORMAT_VIDEO_colorMatrix,
                           SPA_POD_OPT_Id(&matrix)) < 0 ||
      size.width < 2 || size.height < 2 || size.width > side || size.height > side) {
    return std::nullopt;
  }
  CameraFormat result{CameraCoding::jpeg, static_cast<std::int32_t>(size.width),
                      static_cast<std::int32_t>(size.height), matrixOf(matrix),
                      range == SPA_VIDEO_COLOR_RANGE_0_255};
  if (subtype == SPA_MEDIA_SUBTYPE_mjpg) {
    return result;
  }
  for (const auto& coding : codings) {
    if (subtype == SPA_MEDIA_SUBTYPE_raw && coding.name == name) {
      result.coding = coding.coding;
      result.isFullRange = result.isFullRange ||
                           (coding.coding == CameraCoding::gray8 && range == SPA_VIDEO_COLOR_RANGE_UNKNOWN);
      return result;
    }
  }
  return std::nullopt;
}

} // namespace tessarin::pipewire
