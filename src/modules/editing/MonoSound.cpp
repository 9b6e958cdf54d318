#include "modules/editing/MonoSound.hpp"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <algorithm>

namespace tessarin::editing {

namespace {

constexpr std::int32_t tellingRate = 48000;

[[noreturn]] void failUnreadable() {
  throw MovieEditingFailure(MovieEditingError::unreadable);
}

void mix(const SoundStretch& stretch, std::vector<float>& into) {
  const auto frames = static_cast<std::size_t>(stretch.frames);
  into.assign(stretch.channels[0], stretch.channels[0] + frames);
  if (stretch.channels.size() == 2) {
    const float* const other = stretch.channels[1];
    for (std::size_t i = 0; i < frames; ++i)
      into[i] = (into[i] + other[i]) * 0.5F;
    return;
  }
  for (std::size_t channel = 1; channel < stretch.channels.size(); ++channel)
    for (std::size_t i = 0; i < frames; ++i)
      into[i] += stretch.channels[channel][i];
  const float part = 1.0F / static_cast<float>(stretch.channels.size());
  for (float& sample : into)
    sample *= part;
}

} // namespace

void MonoSound::take(const SoundStretch& stretch) {
  if (stretch.channels.empty())
    failUnreadable();
  if (stretch.rate != rate_ || stretch.position != end_)
    beginRow(stretch);
  end_ = stretch.position + stretch.frames;
  mix(stretch, mixed_);
  if (resampler_)
    resample(mixed_.data(), stretch.frames);
  else
    tell(mixed_);
}

// What follows is not the continuation of what came before.
void MonoSound::beginRow(const SoundStretch& stretch) {
  finish();
  rate_ = stretch.rate;
  position_ = MediaTime(stretch.position, rate_).convertedTo(tellingRate).value();
  resampler_.reset();
  if (rate_ == tellingRate)
    return;
  AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
  SwrContext* resampler = nullptr;
  const int made = swr_alloc_set_opts2(&resampler, &mono, AV_SAMPLE_FMT_FLT, tellingRate, &mono,
                                       AV_SAMPLE_FMT_FLT, rate_, 0, nullptr);
  resampler_.reset(resampler);
  if (made < 0 || swr_init(resampler) < 0)
    failUnreadable();
}

void MonoSound::resample(const float* samples, std::int64_t frames) {
  const int room = swr_get_out_samples(resampler_.get(), static_cast<int>(frames));
  if (room < 0)
    failUnreadable();
  resampled_.resize(static_cast<std::size_t>(room));
  auto* into = reinterpret_cast<std::uint8_t*>(resampled_.data());
  const auto* from = reinterpret_cast<const std::uint8_t*>(samples);
  const int made = swr_convert(resampler_.get(), &into, room, samples == nullptr ? nullptr : &from,
                               static_cast<int>(frames));
  if (made < 0)
    failUnreadable();
  tell(std::span(resampled_).first(static_cast<std::size_t>(made)));
}

void MonoSound::tell(std::span<const float> samples) {
  if (samples.empty())
    return;
  handler_({samples, MediaTime(position_, tellingRate)});
  position_ += static_cast<std::int64_t>(samples.size());
}

void MonoSound::finish() {
  if (resampler_)
    resample(nullptr, 0);
}

} // namespace tessarin::editing
