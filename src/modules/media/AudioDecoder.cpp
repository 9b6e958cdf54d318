#include "modules/media/AudioDecoder.hpp"

#include "modules/media/AudioSampleEntry.hpp"
#include "modules/media/CoderFailure.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>
#include <vector>

namespace tessarin::media {

void FreeResampler::operator()(SwrContext* resampler) const {
  swr_free(&resampler);
}

namespace {

void giveConfiguration(AVCodecContext& context, const Bytes& configuration) {
  context.extradata = static_cast<std::uint8_t*>(
      checkedLibrary(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE)));
  context.extradata_size = static_cast<int>(configuration.size());
  std::transform(configuration.begin(), configuration.end(), context.extradata,
                 [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
}

} // namespace

AudioDecoder::AudioDecoder(const container::Track& track, MediaTime duration, const AudioSettings& into,
                           Output output)
    : track_(track), duration_(duration), into_(into), output_(std::move(output)) {
  av_log_set_level(AV_LOG_QUIET); // what a library prints is no protocol of this program
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
  if (codec == nullptr)
    throw CoderFailure("libavcodec", AVERROR_DECODER_NOT_FOUND);
  context_.reset(checkedLibrary(avcodec_alloc_context3(codec)));
  giveConfiguration(*context_, audioConfiguration(track.descriptions.front()));
  context_->thread_count = 1;
  checkLibrary(avcodec_open2(context_.get(), codec, nullptr));
  frame_.reset(checkedLibrary(av_frame_alloc()));
  packet_.reset(checkedLibrary(av_packet_alloc()));
}

bool AudioDecoder::needs(const container::Sample& sample) const {
  return MediaTime(sample.decodeTime - track_.presentationStart, track_.timescale) < duration_;
}

void AudioDecoder::decode(const container::Sample& sample, std::span<const std::byte> data) {
  // One sample description is enough for whatever this program writes.
  if (sample.description != 0)
    throw CoderFailure("POSIX", EINVAL);
  av_packet_unref(packet_.get());
  checkLibrary(av_new_packet(packet_.get(), static_cast<int>(data.size())));
  std::transform(data.begin(), data.end(), packet_->data,
                 [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
  if (avcodec_send_packet(context_.get(), packet_.get()) < 0)
    return; // torn: silent
  while (avcodec_receive_frame(context_.get(), frame_.get()) >= 0)
    place(sample.decodeTime);
}

// Puts the decoded frame where it belongs, within the stretch.
void AudioDecoder::place(std::int64_t decodeTime) {
  if (!resampler_)
    prepare();
  if (frame_->sample_rate != rate_)
    throw CoderFailure("POSIX", EINVAL);
  const std::int64_t start =
      MediaTime(decodeTime - track_.presentationStart, track_.timescale).convertedTo(rate_).value();
  const std::int64_t end = std::min<std::int64_t>(start + frame_->nb_samples, end_);
  feedSilence(std::min(start, end_) - position_);
  if (end > position_)
    feed(position_ - start, end - position_);
}

void AudioDecoder::prepare() {
  rate_ = frame_->sample_rate;
  end_ = duration_.convertedTo(rate_).value();
  AVChannelLayout layout;
  av_channel_layout_default(&layout, into_.channelCount);
  SwrContext* resampler = nullptr;
  const int made =
      swr_alloc_set_opts2(&resampler, &layout, AV_SAMPLE_FMT_FLT, into_.sampleRate, &frame_->ch_layout,
                          static_cast<AVSampleFormat>(frame_->format), rate_, 0, nullptr);
  resampler_.reset(resampler);
  checkLibrary(made);
  checkLibrary(swr_init(resampler));
}

void AudioDecoder::feed(std::int64_t skipped, std::int64_t frames) {
  const auto format = static_cast<AVSampleFormat>(frame_->format);
  const int channels = frame_->ch_layout.nb_channels;
  const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
  const std::ptrdiff_t step = std::ptrdiff_t{av_get_bytes_per_sample(format)} * (isPlanar ? 1 : channels);
  std::vector<const std::uint8_t*> planes(static_cast<std::size_t>(isPlanar ? channels : 1));
  for (std::size_t plane = 0; plane < planes.size(); ++plane)
    planes[plane] = frame_->extended_data[plane] + skipped * step;
  convert(planes.data(), frames);
  position_ += frames;
}

void AudioDecoder::feedSilence(std::int64_t frames) {
  const auto format = static_cast<AVSampleFormat>(frame_->format);
  const auto channels = static_cast<std::size_t>(frame_->ch_layout.nb_channels);
  while (frames > 0) {
    const std::int64_t step = std::min<std::int64_t>(frames, rate_);
    // Enough for every plane, or for all channels in one.
    const std::vector<std::uint8_t> zeros(static_cast<std::size_t>(step) * channels *
                                          static_cast<std::size_t>(av_get_bytes_per_sample(format)));
    std::vector<const std::uint8_t*> planes(channels, zeros.data());
    convert(planes.data(), step);
    position_ += step;
    frames -= step;
  }
}

// Without planes, what the resampler still holds.
void AudioDecoder::convert(const std::uint8_t** planes, std::int64_t frames) {
  const int count = static_cast<int>(frames);
  const int room = swr_get_out_samples(resampler_.get(), count);
  checkLibrary(room);
  if (room == 0)
    return;
  std::vector<float> converted(static_cast<std::size_t>(room) * static_cast<std::size_t>(into_.channelCount));
  std::array<std::uint8_t*, 1> into{reinterpret_cast<std::uint8_t*>(converted.data())};
  const int made = swr_convert(resampler_.get(), into.data(), room, planes, count);
  checkLibrary(made);
  output_(std::span(converted).first(static_cast<std::size_t>(made) *
                                     static_cast<std::size_t>(into_.channelCount)));
}

void AudioDecoder::finish() {
  if (!resampler_)
    throw CoderFailure("POSIX", EINVAL); // nothing could be decoded
  convert(nullptr, 0);
}

} // namespace tessarin::media
