#include "SourceCamera.hpp"

#include "support/CameraJpeg.hpp"

#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace tessarin::source {

namespace {

using camera::RawFormat;

spa_video_format spaFormat(RawFormat format) {
  switch (format) {
  case RawFormat::yuy2:
    return SPA_VIDEO_FORMAT_YUY2;
  case RawFormat::uyvy:
    return SPA_VIDEO_FORMAT_UYVY;
  case RawFormat::nv12:
    return SPA_VIDEO_FORMAT_NV12;
  case RawFormat::i420:
    return SPA_VIDEO_FORMAT_I420;
  case RawFormat::rgbx:
    return SPA_VIDEO_FORMAT_RGBx;
  case RawFormat::rgb:
    return SPA_VIDEO_FORMAT_RGB;
  case RawFormat::gray8:
    return SPA_VIDEO_FORMAT_GRAY8;
  case RawFormat::bgrx:
    break;
  }
  return SPA_VIDEO_FORMAT_BGRx;
}

const spa_pod* buildFormat(spa_pod_builder& builder, const CameraOffer& offer, const Options& options) {
  spa_pod_frame frame{};
  const spa_rectangle size{static_cast<std::uint32_t>(offer.width), static_cast<std::uint32_t>(offer.height)};
  const spa_fraction rate{static_cast<std::uint32_t>(offer.frameRate), 1};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                      SPA_FORMAT_mediaSubtype,
                      SPA_POD_Id(offer.format ? SPA_MEDIA_SUBTYPE_raw : SPA_MEDIA_SUBTYPE_mjpg), 0);
  if (offer.format) {
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(spaFormat(*offer.format)), 0);
  }
  spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_Fraction(&rate), 0);
  if (options.tellsRules) {
    const auto matrix = options.rules.isBt709 ? SPA_VIDEO_COLOR_MATRIX_BT709 : SPA_VIDEO_COLOR_MATRIX_BT601;
    const auto range = options.rules.isFullRange ? SPA_VIDEO_COLOR_RANGE_0_255 : SPA_VIDEO_COLOR_RANGE_16_235;
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(range),
                        SPA_FORMAT_VIDEO_colorMatrix, SPA_POD_Id(matrix), 0);
  }
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

} // namespace

CameraSource::CameraSource(Server& server, const Options& options) : server_(server), options_(options) {
  auto* properties =
      pw_properties_new(PW_KEY_NODE_NAME, options.name.c_str(), PW_KEY_NODE_DESCRIPTION,
                        options.description.c_str(), PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                        "Capture", PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_MEDIA_CLASS, "Video/Source", nullptr);
  stream_ = pw_stream_new(server.core(), options.name.c_str(), properties);
  events_.version = PW_VERSION_STREAM_EVENTS;
  events_.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char*) {
    static_cast<CameraSource*>(self)->setState(state);
  };
  events_.param_changed = [](void* self, std::uint32_t id, const spa_pod* parameter) {
    if (id == SPA_PARAM_Format && parameter) {
      static_cast<CameraSource*>(self)->setFormat(parameter);
    }
  };
  events_.process = [](void* self) { static_cast<CameraSource*>(self)->process(); };
  pw_stream_add_listener(stream_, &listener_, &events_, this);
  timer_ = pw_loop_add_timer(
      server.loop(),
      [](void* self, std::uint64_t) { pw_stream_trigger_process(static_cast<CameraSource*>(self)->stream_); },
      this);
  connect();
}

CameraSource::~CameraSource() {
  pw_stream_destroy(stream_);
}

std::vector<const spa_pod*> CameraSource::buildFormats(spa_pod_builder& builder) const {
  std::vector<const spa_pod*> formats;
  for (const auto& offer : options_.offers) {
    formats.push_back(buildFormat(builder, offer, options_));
  }
  return formats;
}

void CameraSource::connect() {
  std::uint8_t memory[4096];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory, sizeof memory);
  auto formats = buildFormats(builder);
  const auto flags = PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS;
  if (pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, static_cast<pw_stream_flags>(flags),
                        formats.data(), static_cast<std::uint32_t>(formats.size())) < 0) {
    throw std::runtime_error("the stream does not connect");
  }
}

void CameraSource::setState(pw_stream_state state) {
  if (state == PW_STREAM_STATE_ERROR) {
    server_.quit();
  }
  if (state == PW_STREAM_STATE_PAUSED && !isReady_) {
    isReady_ = true;
    say("ready");
  }
  isStreaming_ = state == PW_STREAM_STATE_STREAMING;
  setTimer(isStreaming_ && !isStalled_);
}

void CameraSource::setFormat(const spa_pod* format) {
  std::uint32_t type = 0;
  std::uint32_t subtype = 0;
  spa_rectangle size{};
  spa_fraction rate{};
  std::uint32_t raw = 0;
  if (spa_format_parse(format, &type, &subtype) < 0 ||
      spa_pod_parse_object(format, SPA_TYPE_OBJECT_Format, nullptr, SPA_FORMAT_VIDEO_size,
                           SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate, SPA_POD_OPT_Fraction(&rate),
                           SPA_FORMAT_VIDEO_format, SPA_POD_OPT_Id(&raw)) < 0) {
    return;
  }
  for (const auto& offer : options_.offers) {
    const bool isSameKind = offer.format ? subtype == SPA_MEDIA_SUBTYPE_raw && raw == spaFormat(*offer.format)
                                         : subtype == SPA_MEDIA_SUBTYPE_mjpg;
    if (isSameKind && size.width == static_cast<std::uint32_t>(offer.width) &&
        size.height == static_cast<std::uint32_t>(offer.height)) {
      current_ = offer;
    }
  }
  picture_ = current_.format ? camera::paintBars(*current_.format, current_.width, current_.height,
                                                 options_.rules, options_.padding)
                             : camera::paintBars(RawFormat::rgb, current_.width, current_.height, {});
  sendBufferParameters();
  setTimer(isStreaming_ && !isStalled_);
}

std::vector<std::uint32_t> CameraSource::planeSizes() const {
  const auto whole = static_cast<std::uint32_t>(picture_.bytes.size());
  const auto luma = static_cast<std::uint32_t>(picture_.stride * picture_.height);
  if (!options_.hasPlanes || whole == luma || !current_.format) {
    return {whole};
  }
  if (current_.format == RawFormat::nv12) {
    return {luma, whole - luma};
  }
  return {luma, (whole - luma) / 2, (whole - luma) / 2};
}

void CameraSource::sendBufferParameters() {
  std::uint8_t memory[1024];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory, sizeof memory);
  const auto sizes = planeSizes();
  const auto size =
      static_cast<std::int32_t>(*std::max_element(sizes.begin(), sizes.end())) + options_.offset;
  const spa_pod* parameters[2] = {};
  parameters[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
      SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_blocks,
      SPA_POD_Int(static_cast<std::int32_t>(sizes.size())), SPA_PARAM_BUFFERS_size, SPA_POD_Int(size),
      SPA_PARAM_BUFFERS_stride, SPA_POD_Int(current_.format ? picture_.stride : 0),
      SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr))));
  parameters[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
      SPA_PARAM_META_size, SPA_POD_Int(static_cast<std::int32_t>(sizeof(spa_meta_header)))));
  pw_stream_update_params(stream_, parameters, options_.hasHeader ? 2 : 1);
}

void CameraSource::setTimer(bool isOn) {
  timespec first{0, isOn ? 1 : 0};
  const long interval = isOn ? 1'000'000'000L / current_.frameRate : 0;
  timespec next{interval / 1'000'000'000L, interval % 1'000'000'000L};
  pw_loop_update_timer(server_.loop(), timer_, &first, &next, false);
}

void CameraSource::process() {
  auto* buffer = pw_stream_dequeue_buffer(stream_);
  if (!buffer) {
    return; // nobody has given one back yet
  }
  writeFrame(*buffer);
  if (auto* header = static_cast<spa_meta_header*>(
          spa_buffer_find_meta_data(buffer->buffer, SPA_META_Header, sizeof(spa_meta_header)))) {
    header->flags = 0;
    header->pts = now();
    header->seq = frame_;
    header->dts_offset = 0;
  }
  pw_stream_queue_buffer(stream_, buffer);
  ++frame_;
}

std::vector<std::uint8_t> CameraSource::nextFrame() {
  camera::drawCounter(picture_, frame_, options_.rules);
  auto bytes = current_.format ? picture_.bytes : camera::jpegOf(picture_);
  if (health_ == Health::shortened) {
    bytes.resize(bytes.size() / 2);
  } else if (health_ == Health::garbage) {
    std::uint32_t noise = frame_ + 1;
    for (auto& byte : bytes) {
      noise = noise * 1664525U + 1013904223U;
      byte = static_cast<std::uint8_t>(noise >> 24U);
    }
  }
  return bytes;
}

void CameraSource::writeFrame(pw_buffer& buffer) {
  const auto bytes = nextFrame();
  const auto sizes = planeSizes();
  const auto offset = static_cast<std::uint32_t>(options_.offset);
  std::size_t position = 0;
  for (std::uint32_t i = 0; i < buffer.buffer->n_datas && i < sizes.size(); ++i) {
    auto& data = buffer.buffer->datas[i];
    const bool isLast = i + 1 == sizes.size();
    const auto left = static_cast<std::uint32_t>(bytes.size() - position);
    const auto room = data.maxsize - std::min(data.maxsize, offset);
    const auto size = std::min(isLast ? left : std::min(left, sizes[i]), room);
    std::memcpy(static_cast<std::uint8_t*>(data.data) + offset, bytes.data() + position, size);
    data.chunk->offset = offset;
    data.chunk->size = size;
    data.chunk->flags = 0;
    data.chunk->stride = !current_.format ? 0 : i == 0 ? picture_.stride : picture_.chromaStride();
    position += size;
  }
}

void CameraSource::carryOut(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "stall" || command == "resume") {
    isStalled_ = command == "stall";
    setTimer(isStreaming_ && !isStalled_);
  } else if (command == "short") {
    health_ = Health::shortened;
  } else if (command == "garbage") {
    health_ = Health::garbage;
  } else if (command == "good") {
    health_ = Health::good;
  } else if (command == "offer") {
    std::string text;
    words >> text;
    options_.offers = {parseOffer(text)};
    std::uint8_t memory[1024];
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory, sizeof memory);
    auto formats = buildFormats(builder);
    pw_stream_update_params(stream_, formats.data(), static_cast<std::uint32_t>(formats.size()));
  } else {
    throw std::runtime_error("unknown command " + command);
  }
  say("done");
}

} // namespace tessarin::source
