#include "modules/media/VideoCoder.hpp"

#include "modules/media/CoderFailure.hpp"
#include "modules/media/H264Repeater.hpp"
#include "modules/media/SampleEntry.hpp"

#include <algorithm>
#include <string>
#include <thread>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

namespace tessarin::media {

namespace {

struct FreeContext {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

constexpr const char* domain = "libav";

// Throws for a negative result of the library.
void check(int result) {
  if (result < 0)
    throw CoderFailure(domain, result);
}

template<class T> T* checked(T* pointer) {
  if (pointer == nullptr)
    throw CoderFailure(domain, AVERROR(ENOMEM));
  return pointer;
}

const AVCodec* coderOf(RecordingCodec codec) {
  return avcodec_find_encoder_by_name(codec == RecordingCodec::hevc ? "libx265" : "libx264");
}

// Pictures that are looked at before the first one of them is coded. A look-ahead of more than a part of a
// key interval gains nothing.
std::int64_t lookahead(const VideoSettings& settings) {
  constexpr std::int64_t most = 10;
  return std::clamp<std::int64_t>(settings.maximumKeyFrameInterval / 3, 0, most);
}

// Two pictures at a time keep the coder ahead of a busy screen on a small machine; each more costs delay.
int pictureThreads() {
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 2U, 4U));
}

// The two coders' own options. What they share: no picture is predicted from a later one or from more than
// the one before it; keys are placed by us alone and close their group; no weights, which repeated pictures
// could not tell; slices whole.
std::string h264Options(const VideoSettings& settings) {
  return "ref=1:bframes=0:weightp=0:scenecut=0:open-gop=0:keyint=infinite:slices=1:sliced-threads=0:"
         "sync-lookahead=0:rc-lookahead=" +
         std::to_string(lookahead(settings));
}

std::string hevcOptions(const VideoSettings& settings) {
  return "ref=1:bframes=0:weightp=0:scenecut=0:open-gop=0:keyint=-1:repeat-headers=0:log-level=none:info=0:"
         "rc-lookahead=" +
         std::to_string(lookahead(settings)) + ":frame-threads=" + std::to_string(pictureThreads());
}

class LibraryCoder final : public VideoCoder {
 public:
  explicit LibraryCoder(const VideoSettings& settings);

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>& picture, std::int64_t time,
                                   bool asKey) override;
  std::vector<CodedPicture> finish() override;
  std::int64_t delay() const override;
  const container::SampleDescription& description() const override { return description_; }
  std::unique_ptr<PictureRepeater> makeRepeater() const override;

 private:
  void configure();
  void wrap(const std::shared_ptr<const I420Picture>& picture);
  std::vector<CodedPicture> receive();
  std::span<const std::byte> parameterSets() const {
    return std::as_bytes(std::span(context_->extradata, static_cast<std::size_t>(context_->extradata_size)));
  }

  const VideoSettings settings_;
  std::unique_ptr<AVCodecContext, FreeContext> context_;
  std::unique_ptr<AVFrame, FreeFrame> frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;
  container::SampleDescription description_;
};

LibraryCoder::LibraryCoder(const VideoSettings& settings) : settings_(settings) {
  const AVCodec* coder = coderOf(settings.codec);
  if (coder == nullptr)
    throw CoderFailure(domain, AVERROR_ENCODER_NOT_FOUND);
  context_.reset(checked(avcodec_alloc_context3(coder)));
  frame_.reset(checked(av_frame_alloc()));
  packet_.reset(checked(av_packet_alloc()));
  configure();
  check(avcodec_open2(context_.get(), coder, nullptr));
  description_ = makeSampleEntry(settings_, parameterSets());
}

std::int64_t LibraryCoder::delay() const {
  // x265 looks at two pictures more than it is told.
  const std::int64_t more = settings_.codec == RecordingCodec::hevc ? 2 : 0;
  return lookahead(settings_) + pictureThreads() + more;
}

void LibraryCoder::configure() {
  AVCodecContext& context = *context_;
  context.width = static_cast<int>(settings_.width);
  context.height = static_cast<int>(settings_.height);
  context.pix_fmt = AV_PIX_FMT_YUV420P;
  context.sample_aspect_ratio = {1, 1};
  context.time_base = {1, static_cast<int>(settings_.expectedFrameRate)};
  context.framerate = {static_cast<int>(settings_.expectedFrameRate), 1};
  context.bit_rate = settings_.averageBitRate;
  context.max_b_frames = 0;
  context.thread_count = pictureThreads();
  context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_CLOSED_GOP;
  context.color_primaries = AVCOL_PRI_BT709;
  context.color_trc = AVCOL_TRC_BT709;
  context.colorspace = AVCOL_SPC_BT709;
  context.color_range = AVCOL_RANGE_MPEG;
  context.chroma_sample_location = AVCHROMA_LOC_CENTER;
  const bool isHevc = settings_.codec == RecordingCodec::hevc;
  // HEVC is several times as dear, so that only its fastest preset keeps up with a screen.
  check(av_opt_set(context.priv_data, "preset", isHevc ? "ultrafast" : "veryfast", 0));
  check(av_opt_set_int(context.priv_data, "forced-idr", 1, 0));
  const std::string options = isHevc ? hevcOptions(settings_) : h264Options(settings_);
  check(av_opt_set(context.priv_data, isHevc ? "x265-params" : "x264-params", options.c_str(), 0));
}

// The frame of the library refers to the picture's planes and keeps the picture until it lets go of them.
void LibraryCoder::wrap(const std::shared_ptr<const I420Picture>& picture) {
  const pixels::I420Planes planes = picture->planes();
  AVFrame& frame = *frame_;
  frame.format = AV_PIX_FMT_YUV420P;
  frame.width = picture->width();
  frame.height = picture->height();
  frame.data[0] = planes.y;
  frame.data[1] = planes.u;
  frame.data[2] = planes.v;
  frame.linesize[0] = static_cast<int>(planes.yStride);
  frame.linesize[1] = static_cast<int>(planes.uStride);
  frame.linesize[2] = static_cast<int>(planes.vStride);
  auto holder = std::make_unique<std::shared_ptr<const I420Picture>>(picture);
  const auto letGo = [](void* opaque, std::uint8_t*) {
    delete static_cast<std::shared_ptr<const I420Picture>*>(opaque);
  };
  const std::ptrdiff_t bytes = planes.yStride * picture->height() + planes.uStride * picture->height();
  frame.buf[0] = checked(av_buffer_create(planes.y, static_cast<std::size_t>(bytes), letGo, holder.get(),
                                          AV_BUFFER_FLAG_READONLY));
  static_cast<void>(holder.release());
}

std::vector<CodedPicture> LibraryCoder::encode(const std::shared_ptr<const I420Picture>& picture,
                                               std::int64_t time, bool asKey) {
  wrap(picture);
  frame_->pts = time;
  frame_->pict_type = asKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  const int result = avcodec_send_frame(context_.get(), frame_.get());
  av_frame_unref(frame_.get());
  check(result);
  return receive();
}

std::vector<CodedPicture> LibraryCoder::finish() {
  check(avcodec_send_frame(context_.get(), nullptr));
  return receive();
}

std::vector<CodedPicture> LibraryCoder::receive() {
  std::vector<CodedPicture> pictures;
  for (;;) {
    const int result = avcodec_receive_packet(context_.get(), packet_.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
      return pictures;
    check(result);
    CodedPicture picture;
    picture.isKey = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
    picture.sample.reserve(static_cast<std::size_t>(packet_->size) + 16);
    const auto stream = std::as_bytes(std::span(packet_->data, static_cast<std::size_t>(packet_->size)));
    for (const auto unit : splitByteStream(stream))
      appendToSample(picture.sample, unit);
    av_packet_unref(packet_.get());
    pictures.push_back(std::move(picture));
  }
}

std::unique_ptr<PictureRepeater> LibraryCoder::makeRepeater() const {
  // Copies of keys need room between one another beyond what the coder holds back.
  if (settings_.codec != RecordingCodec::h264 || settings_.maximumKeyFrameInterval < delay() + 3)
    return nullptr;
  const auto units = splitByteStream(parameterSets());
  const auto unitOf = [&](h264::UnitType type) {
    const auto found =
        std::find_if(units.begin(), units.end(), [&](auto unit) { return h264::typeOf(unit) == type; });
    return found == units.end() ? std::span<const std::byte>{} : *found;
  };
  const auto parameters =
      h264::parseParameterSets(unitOf(h264::UnitType::sequence), unitOf(h264::UnitType::picture));
  return parameters ? std::make_unique<H264Repeater>(*parameters) : nullptr;
}

} // namespace

bool canCode(const VideoSettings& settings) {
  constexpr std::int64_t longestSide = 16384;
  constexpr std::int64_t highestRate = 1000;
  const auto fits = [](std::int64_t side) { return side >= 2 && side <= longestSide && side % 2 == 0; };
  return fits(settings.width) && fits(settings.height) && settings.averageBitRate > 0 &&
         settings.expectedFrameRate > 0 && settings.expectedFrameRate <= highestRate &&
         settings.maximumKeyFrameInterval > 0 && coderOf(settings.codec) != nullptr;
}

std::unique_ptr<VideoCoder> makeVideoCoder(const VideoSettings& settings) {
  // What a library prints is no protocol of this program.
  av_log_set_level(AV_LOG_QUIET);
  return std::make_unique<LibraryCoder>(settings);
}

} // namespace tessarin::media
