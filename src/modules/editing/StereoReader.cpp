#include "modules/editing/StereoReader.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <algorithm>

namespace tessarin::editing {

namespace {

constexpr std::int32_t readingRate = 48000;
// What lies ahead of the frame that is sought, so that a resampler has begun when it comes.
constexpr std::int64_t settling = 960;

[[noreturn]] void failUnreadable() {
  throw MovieEditingFailure(MovieEditingError::unreadable);
}

} // namespace

void StereoReader::seek(std::int64_t frame) {
  reader_.seek(MediaTime(std::max<std::int64_t>(frame - settling, 0), readingRate));
  position_ = frame;
  blocks_.clear();
  resampler_.reset();
  rate_ = 0;
  hasEnded_ = false;
}

void StereoReader::read(std::span<float> frames) {
  while (!frames.empty()) {
    if (blocks_.empty() && !fetch()) {
      std::fill(frames.begin(), frames.end(), 0.0F);
      position_ += static_cast<std::int64_t>(frames.size() / 2);
      return;
    }
    if (blocks_.empty())
      continue;
    const Block& block = blocks_.front();
    const auto length = static_cast<std::int64_t>(block.frames.size() / 2);
    const std::int64_t skipped = position_ - block.position;
    if (skipped >= length) {
      blocks_.pop_front();
      continue;
    }
    const auto room = static_cast<std::int64_t>(frames.size() / 2);
    const std::int64_t count = std::min(room, skipped < 0 ? -skipped : length - skipped);
    if (skipped < 0)
      std::fill_n(frames.begin(), 2 * count, 0.0F);
    else
      std::copy_n(block.frames.begin() + 2 * skipped, 2 * count, frames.begin());
    frames = frames.subspan(static_cast<std::size_t>(2 * count));
    position_ += count;
  }
}

// False when there is no more.
bool StereoReader::fetch() {
  if (hasEnded_)
    return false;
  if (const auto stretch = reader_.next()) {
    convert(*stretch);
    return true;
  }
  hasEnded_ = true;
  endRow();
  return true;
}

void StereoReader::convert(const SoundStretch& stretch) {
  if (stretch.channels.empty())
    failUnreadable();
  if (stretch.rate != rate_ || stretch.channels.size() != channelCount_ || stretch.position != rowEnd_)
    beginRow(stretch);
  rowEnd_ = stretch.position + stretch.frames;
  if (resampler_) {
    std::vector<const float*> channels = stretch.channels;
    if (channels.size() == 1)
      channels.push_back(channels.front());
    resample(channels.data(), stretch.frames);
    return;
  }
  Block block{stretch.position, {}};
  block.frames.resize(static_cast<std::size_t>(2 * stretch.frames));
  const float* const left = stretch.channels.front();
  const float* const right = stretch.channels.back();
  for (std::size_t i = 0; i < static_cast<std::size_t>(stretch.frames); ++i) {
    block.frames[2 * i] = left[i];
    block.frames[2 * i + 1] = right[i];
  }
  blocks_.push_back(std::move(block));
}

void StereoReader::beginRow(const SoundStretch& stretch) {
  endRow();
  rate_ = stretch.rate;
  channelCount_ = stretch.channels.size();
  nextPosition_ = MediaTime(stretch.position, rate_).convertedTo(readingRate).value();
  resampler_.reset();
  if (rate_ == readingRate && channelCount_ <= 2)
    return;
  AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
  SwrContext* resampler = nullptr;
  const int made = swr_alloc_set_opts2(&resampler, &stereo, AV_SAMPLE_FMT_FLT, readingRate,
                                       channelCount_ <= 2 ? &stereo : stretch.layout, AV_SAMPLE_FMT_FLTP,
                                       rate_, 0, nullptr);
  resampler_.reset(resampler);
  if (made < 0 || swr_init(resampler) < 0)
    failUnreadable();
}

// Without channels, what the resampler still holds.
void StereoReader::resample(const float* const* channels, std::int64_t frames) {
  const int room = swr_get_out_samples(resampler_.get(), static_cast<int>(frames));
  if (room < 0)
    failUnreadable();
  Block block{nextPosition_, {}};
  block.frames.resize(2 * static_cast<std::size_t>(room));
  auto* into = reinterpret_cast<std::uint8_t*>(block.frames.data());
  auto** from = reinterpret_cast<const std::uint8_t**>(const_cast<const float**>(channels));
  const int made = swr_convert(resampler_.get(), &into, room, from, static_cast<int>(frames));
  if (made < 0)
    failUnreadable();
  block.frames.resize(2 * static_cast<std::size_t>(made));
  nextPosition_ += made;
  if (made > 0)
    blocks_.push_back(std::move(block));
}

void StereoReader::endRow() {
  if (resampler_)
    resample(nullptr, 0);
  resampler_.reset();
}

} // namespace tessarin::editing
