#include "modules/media/LibraryCoder.hpp"

#include "modules/media/H264Repeater.hpp"
#include "modules/media/SampleEntry.hpp"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

namespace tessarin::media {

void checkLibrary(int result) {
  if (result < 0)
    throw CoderFailure("libav", result);
}

void setOption(AVCodecContext& context, const char* name, const std::string& value) {
  checkLibrary(av_opt_set(context.priv_data, name, value.c_str(), 0));
}

void wrapPicture(AVFrame& frame, const std::shared_ptr<const I420Picture>& picture) {
  const pixels::I420Planes planes = picture->planes();
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
  frame.buf[0] = checkedLibrary(av_buffer_create(planes.y, static_cast<std::size_t>(bytes), letGo,
                                                 holder.get(), AV_BUFFER_FLAG_READONLY));
  static_cast<void>(holder.release());
}

LibraryCoder::LibraryCoder(const Encoder& encoder, const VideoSettings& settings) : settings_(settings) {
  const AVCodec* coder = avcodec_find_encoder_by_name(encoder.name);
  if (coder == nullptr)
    checkLibrary(AVERROR_ENCODER_NOT_FOUND);
  context_.reset(checkedLibrary(avcodec_alloc_context3(coder)));
  frame_.reset(checkedLibrary(av_frame_alloc()));
  packet_.reset(checkedLibrary(av_packet_alloc()));
  AVCodecContext& context = *context_;
  context.width = static_cast<int>(settings.width);
  context.height = static_cast<int>(settings.height);
  context.pix_fmt = AV_PIX_FMT_YUV420P;
  context.sample_aspect_ratio = {1, 1};
  context.time_base = {1, static_cast<int>(settings.expectedFrameRate)};
  context.framerate = {static_cast<int>(settings.expectedFrameRate), 1};
  context.bit_rate = settings.averageBitRate;
  context.max_b_frames = 0;
  context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_CLOSED_GOP;
  context.color_primaries = AVCOL_PRI_BT709;
  context.color_trc = AVCOL_TRC_BT709;
  context.colorspace = AVCOL_SPC_BT709;
  context.color_range = AVCOL_RANGE_MPEG;
  context.chroma_sample_location = AVCHROMA_LOC_CENTER;
}

void LibraryCoder::open() {
  checkLibrary(avcodec_open2(context_.get(), context_->codec, nullptr));
  description_ = makeSampleEntry(settings_, parameterSets());
}

std::span<const std::byte> LibraryCoder::parameterSets() const {
  return std::as_bytes(std::span(context_->extradata, static_cast<std::size_t>(context_->extradata_size)));
}

std::vector<CodedPicture> LibraryCoder::encode(const std::shared_ptr<const I420Picture>& picture,
                                               std::int64_t time, bool asKey) {
  load(*frame_, picture);
  frame_->pts = time;
  frame_->pict_type = asKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  const int result = avcodec_send_frame(context_.get(), frame_.get());
  av_frame_unref(frame_.get());
  checkLibrary(result);
  return receive();
}

std::vector<CodedPicture> LibraryCoder::finish() {
  checkLibrary(avcodec_send_frame(context_.get(), nullptr));
  return receive();
}

std::vector<CodedPicture> LibraryCoder::receive() {
  std::vector<CodedPicture> pictures;
  for (;;) {
    const int result = avcodec_receive_packet(context_.get(), packet_.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
      return pictures;
    checkLibrary(result);
    pictures.push_back(sampleOf(*packet_));
    av_packet_unref(packet_.get());
  }
}

// Parameter sets stand in the description alone. Some hardware repeats them with every key; others than
// those described would leave a reader without the right ones.
CodedPicture LibraryCoder::sampleOf(const AVPacket& packet) const {
  CodedPicture picture;
  picture.isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  picture.sample.reserve(static_cast<std::size_t>(packet.size) + 16);
  const auto stream = std::as_bytes(std::span(packet.data, static_cast<std::size_t>(packet.size)));
  for (const auto unit : splitByteStream(stream)) {
    if (!isParameterSet(unit))
      appendToSample(picture.sample, unit);
    else if (!isDescribed(unit))
      throw CoderFailure("parameter-sets", 0);
  }
  return picture;
}

bool LibraryCoder::isParameterSet(std::span<const std::byte> unit) const {
  if (unit.empty())
    return false;
  const auto first = std::to_integer<unsigned>(unit[0]);
  if (settings_.codec == RecordingCodec::h264)
    return (first & 31) == 7 || (first & 31) == 8;
  const unsigned type = first >> 1 & 63;
  return type >= 32 && type <= 34;
}

bool LibraryCoder::isDescribed(std::span<const std::byte> parameterSet) const {
  const auto described = splitByteStream(parameterSets());
  return std::any_of(described.begin(), described.end(),
                     [&](auto unit) { return std::ranges::equal(unit, parameterSet); });
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

} // namespace tessarin::media
