#include "modules/editing/PictureCoder.hpp"

#include "modules/media/NalUnits.hpp"
#include "modules/media/SampleEntry.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>

namespace tessarin::editing {

namespace {

constexpr double longestKeyInterval = 2; // seconds

// Faster presets spend more bits for the same quality, slower ones several times as long for a tenth less.
// Looking ahead further than this gains nothing that could be measured, and holds back as many pictures.
constexpr const char* h264Preset = "veryfast";
constexpr const char* h264Quality = "18";
constexpr const char* hevcPreset = "superfast";
constexpr const char* hevcQuality = "20";

// Decoding and the making of frames have threads of their own; each more here costs the memory of a picture
// with its planes between pixels.
int codingThreads() {
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 2U, 6U));
}

bool isParameterSet(std::span<const std::byte> unit, RecordingCodec codec) {
  const auto first = std::to_integer<unsigned>(unit[0]);
  if (codec == RecordingCodec::h264)
    return (first & 31U) == 7 || (first & 31U) == 8;
  const unsigned type = first >> 1U & 63U;
  return type >= 32 && type <= 34;
}

// The coder's own picture of a decoded one: its pixels alone, without what the source's coder has said.
media::OwnFrame bare(const AVFrame& picture, std::int64_t time) {
  media::OwnFrame frame(media::checkedLibrary(av_frame_alloc()));
  frame->format = picture.format;
  frame->width = picture.width;
  frame->height = picture.height;
  for (std::size_t i = 0; i < 3; ++i) {
    frame->data[i] = picture.data[i];
    frame->linesize[i] = picture.linesize[i];
    if (picture.buf[i] != nullptr)
      frame->buf[i] = media::checkedLibrary(av_buffer_ref(picture.buf[i]));
  }
  frame->pts = time;
  return frame;
}

} // namespace

PictureCoder::PictureCoder(RecordingCodec codec, PixelSize size, MediaTime frameDuration)
    : codec_(codec), size_(size), frameDuration_(frameDuration) {
  packet_.reset(media::checkedLibrary(av_packet_alloc()));
}

void PictureCoder::open(const AVFrame& first) {
  av_log_set_level(AV_LOG_QUIET); // what a library prints is no protocol of this program
  const bool isHevc = codec_ == RecordingCodec::hevc;
  const AVCodec* const coder = avcodec_find_encoder_by_name(isHevc ? "libx265" : "libx264");
  if (coder == nullptr)
    media::checkLibrary(AVERROR_ENCODER_NOT_FOUND);
  context_.reset(media::checkedLibrary(avcodec_alloc_context3(coder)));
  AVCodecContext& context = *context_;
  context.width = size_.width;
  context.height = size_.height;
  context.pix_fmt = AV_PIX_FMT_YUV420P;
  context.sample_aspect_ratio = {1, 1};
  context.time_base = {static_cast<int>(frameDuration_.value()), frameDuration_.timescale()};
  context.framerate = {frameDuration_.timescale(), static_cast<int>(frameDuration_.value())};
  context.gop_size =
      std::max(1, static_cast<int>(std::floor(longestKeyInterval / frameDuration_.seconds() + 1e-9)));
  context.thread_count = codingThreads();
  context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_CLOSED_GOP;
  context.color_primaries = AVCOL_PRI_BT709;
  context.color_trc = AVCOL_TRC_BT709;
  context.colorspace = AVCOL_SPC_BT709;
  context.color_range = AVCOL_RANGE_MPEG;
  context.chroma_sample_location = first.chroma_location;
  media::setOption(context, "preset", isHevc ? hevcPreset : h264Preset);
  media::setOption(context, "crf", isHevc ? hevcQuality : h264Quality);
  // What looks ahead holds back pictures, which take the most memory of all: a thread of its own gains no
  // time beside the others, and HEVC keeps twice as much of each.
  const std::string hevcThreads = std::to_string(std::max(codingThreads() / 3, 1));
  if (isHevc)
    media::setOption(context, "x265-params",
                     "log-level=none:info=0:open-gop=0:repeat-headers=0:rc-lookahead=5:frame-threads=" +
                         hevcThreads);
  else
    media::setOption(context, "x264-params", "open-gop=0:sync-lookahead=0");
  media::checkLibrary(avcodec_open2(&context, coder, nullptr));
  VideoSettings settings;
  settings.codec = codec_;
  settings.width = size_.width;
  settings.height = size_.height;
  description_ = media::makeSampleEntry(
      settings,
      std::as_bytes(std::span(context.extradata, static_cast<std::size_t>(context.extradata_size))));
}

std::vector<CodedFrame> PictureCoder::encode(const SharedFrame& picture) {
  if (!context_)
    open(*picture);
  const media::OwnFrame frame = bare(*picture, next_++);
  media::checkLibrary(avcodec_send_frame(context_.get(), frame.get()));
  return received();
}

std::vector<CodedFrame> PictureCoder::finish() {
  if (!context_)
    return {};
  media::checkLibrary(avcodec_send_frame(context_.get(), nullptr));
  return received();
}

// Parameter sets stand in the description alone.
std::vector<CodedFrame> PictureCoder::received() {
  std::vector<CodedFrame> frames;
  for (;;) {
    const int result = avcodec_receive_packet(context_.get(), packet_.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
      return frames;
    media::checkLibrary(result);
    CodedFrame coded;
    coded.decodeTime = packet_->dts;
    coded.presentationTime = packet_->pts;
    coded.isKey = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
    coded.data.reserve(static_cast<std::size_t>(packet_->size) + 16);
    const auto stream = std::as_bytes(std::span(packet_->data, static_cast<std::size_t>(packet_->size)));
    for (const auto unit : media::splitByteStream(stream)) {
      if (!unit.empty() && !isParameterSet(unit, codec_))
        media::appendToSample(coded.data, unit);
    }
    frames.push_back(std::move(coded));
    av_packet_unref(packet_.get());
  }
}

} // namespace tessarin::editing
