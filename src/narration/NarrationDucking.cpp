#include "narration/NarrationDucking.hpp"

#include "narration/NarrationSpectrum.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin {

namespace {

constexpr std::int64_t samplesInMs = 48;
constexpr std::size_t channels = 2;
constexpr double fullDecibels = -12;
constexpr float speechRms = 0.015F; // what is above is speech
constexpr float rateDown = 0.0014F; // the share of the way to the target, a frame
constexpr float rateUp = 0.00006F;

} // namespace

NarrationDucking::NarrationDucking(const VideoEditProjectDTO& project) {
  for (const VideoEditClipDTO& clip : project.clips)
    if (std::count(clip.mutedRoles.begin(), clip.mutedRoles.end(), VideoEditAudioRole::microphone) > 0)
      muted_.push_back(clip.span());
  const double decibels = project.narrationAudio ? fullDecibels * project.narrationAudio->strength : 0;
  duckedGain_ = static_cast<float>(std::pow(10, decibels / 20));
}

// Positions never go back.
bool NarrationDucking::isMuted(std::int64_t position) {
  const std::int64_t ms = position / samplesInMs;
  while (next_ < muted_.size() && ms >= muted_[next_].sourceEndMs)
    ++next_;
  return next_ < muted_.size() && ms >= muted_[next_].sourceStartMs;
}

void NarrationDucking::duck(std::span<float> system, std::span<const float> voice) {
  requireNarrationSize(voice.size(), narrationBlockSize);
  const std::size_t frames = std::min(system.size() / channels, narrationBlockSize);
  requireNarrationSize(system.size(), frames * channels);

  NarrationBlock heard;
  for (std::size_t i = 0; i < narrationBlockSize; ++i)
    heard[i] = isMuted(position_++) ? 0 : voice[i];
  const float target = narrationRms(heard) > speechRms ? duckedGain_ : 1;
  for (std::size_t i = 0; i < system.size(); i += channels) {
    gain_ += (target - gain_) * (target < gain_ ? rateDown : rateUp);
    system[i] *= gain_;
    system[i + 1] *= gain_;
  }
}

} // namespace tessarin
