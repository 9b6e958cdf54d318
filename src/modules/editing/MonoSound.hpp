#pragma once

#include "modules/editing/SoundReader.hpp"

#include <functional>

namespace tessarin::editing {

// Makes one channel at 48000 frames a second of decoded stretches: the mean of the channels, at another rate
// resampled. Confined to one thread.
class MonoSound {
 public:
  explicit MonoSound(std::function<void(const DecodedSound&)> handler) : handler_(std::move(handler)) {}

  void take(const SoundStretch& stretch);
  // Tells what is left.
  void finish();

 private:
  void beginRow(const SoundStretch& stretch);
  void resample(const float* samples, std::int64_t frames);
  void tell(std::span<const float> samples);

  const std::function<void(const DecodedSound&)> handler_;
  std::vector<float> mixed_;
  std::unique_ptr<SwrContext, media::FreeResampler> resampler_; // none at the rate itself
  std::vector<float> resampled_;
  std::int32_t rate_ = 0;     // of what is taken; 0 before the first
  std::int64_t end_ = 0;      // of what was taken, frames at that rate
  std::int64_t position_ = 0; // of what is told next, frames at 48000
};

} // namespace tessarin::editing
