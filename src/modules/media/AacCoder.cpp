#include "modules/media/AudioCoder.hpp"

#include "modules/media/AudioSampleEntry.hpp"
#include "modules/media/CoderFailure.hpp"
#include "modules/media/LibraryCoder.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cerrno>

namespace tessarin::media {

namespace {

class LibraryAacCoder final : public AacCoder {
 public:
  LibraryAacCoder(const AudioSettings& settings, AacSearch search);

  std::vector<Bytes> encode(const SoundBlock& block) override;
  std::vector<Bytes> finish() override;
  const container::SampleDescription& description() const override { return description_; }

 private:
  std::vector<Bytes> received();

  std::unique_ptr<AVCodecContext, FreeContext> context_;
  OwnFrame frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;
  container::SampleDescription description_;
  std::int64_t time_ = 0; // frames handed in
};

LibraryAacCoder::LibraryAacCoder(const AudioSettings& settings, AacSearch search) {
  av_log_set_level(AV_LOG_QUIET); // what a library prints is no protocol of this program
  const AVCodec* const codec = avcodec_find_encoder_by_name("aac");
  if (codec == nullptr)
    throw CoderFailure("libavcodec", AVERROR_ENCODER_NOT_FOUND);
  context_.reset(checkedLibrary(avcodec_alloc_context3(codec)));
  context_->sample_fmt = AV_SAMPLE_FMT_FLTP;
  context_->sample_rate = settings.sampleRate;
  context_->bit_rate = settings.bitRate;
  context_->time_base = {1, settings.sampleRate};
  context_->profile = FF_PROFILE_AAC_LOW;
  context_->thread_count = 1;
  context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  av_channel_layout_default(&context_->ch_layout, settings.channelCount);
  // At this rate the quick search sounds no worse for what is recorded, and takes half of the other's time.
  checkLibrary(
      av_opt_set(context_->priv_data, "aac_coder", search == AacSearch::quick ? "fast" : "twoloop", 0));
  checkLibrary(avcodec_open2(context_.get(), codec, nullptr));
  if (context_->frame_size != static_cast<int>(framesPerPacket) || context_->initial_padding != primingFrames)
    throw CoderFailure("POSIX", EPROTO);
  frame_.reset(checkedLibrary(av_frame_alloc()));
  packet_.reset(checkedLibrary(av_packet_alloc()));
  const std::span extradata(context_->extradata, static_cast<std::size_t>(context_->extradata_size));
  description_ = makeAudioSampleEntry(settings, std::as_bytes(extradata));
}

std::vector<Bytes> LibraryAacCoder::encode(const SoundBlock& block) {
  av_frame_unref(frame_.get());
  frame_->format = context_->sample_fmt;
  frame_->sample_rate = context_->sample_rate;
  frame_->nb_samples = static_cast<int>(framesPerPacket);
  checkLibrary(av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout));
  checkLibrary(av_frame_get_buffer(frame_.get(), 0));
  frame_->pts = time_;
  time_ += static_cast<std::int64_t>(framesPerPacket);
  for (std::size_t channel = 0; channel < block.channels.size(); ++channel)
    std::copy(block.channels[channel].begin(), block.channels[channel].end(),
              reinterpret_cast<float*>(frame_->extended_data[channel]));
  checkLibrary(avcodec_send_frame(context_.get(), frame_.get()));
  return received();
}

std::vector<Bytes> LibraryAacCoder::finish() {
  checkLibrary(avcodec_send_frame(context_.get(), nullptr));
  return received();
}

std::vector<Bytes> LibraryAacCoder::received() {
  std::vector<Bytes> packets;
  int result = 0;
  while ((result = avcodec_receive_packet(context_.get(), packet_.get())) >= 0) {
    const auto data = std::as_bytes(std::span(packet_->data, static_cast<std::size_t>(packet_->size)));
    packets.emplace_back(data.begin(), data.end());
    av_packet_unref(packet_.get());
  }
  if (result != AVERROR(EAGAIN) && result != AVERROR_EOF)
    checkLibrary(result);
  return packets;
}

} // namespace

bool canCode(const AudioSettings& settings) {
  return settings.sampleRate == 48000 && settings.channelCount == 2 && settings.bitRate >= 32'000 &&
         settings.bitRate <= 512'000 && avcodec_find_encoder_by_name("aac") != nullptr;
}

std::unique_ptr<AacCoder> makeAacCoder(const AudioSettings& settings, AacSearch search) {
  return std::make_unique<LibraryAacCoder>(settings, search);
}

} // namespace tessarin::media
