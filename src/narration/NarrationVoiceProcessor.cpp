#include "narration/NarrationVoiceProcessor.hpp"

#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"
#include "narration/NarrationVoiceSteps.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin {

namespace {

constexpr float highPassCoefficient = 0.9896F; // a corner near 80 Hz

} // namespace

NarrationVoiceProcessor::NarrationVoiceProcessor(std::span<const float> noise, float strength)
    : strength_(strength) {
  const bool isNoise =
      noise.size() == narrationSpectrumSize &&
      std::all_of(noise.begin(), noise.end(), [](float power) { return std::isfinite(power) && power >= 0; });
  if (!isNoise || !(strength >= 0 && strength <= 1))
    fail(VideoEditExportError::invalidProject);
  std::copy(noise.begin(), noise.end(), noise_.begin());
  mask_.fill(1);
}

NarrationBlock NarrationVoiceProcessor::process(std::span<const float> frame) {
  NarrationBlock samples = gated(frame);
  filter(samples);
  level(samples);
  return samples;
}

// The second half of the block before, whose noise is gone.
NarrationBlock NarrationVoiceProcessor::gated(std::span<const float> frame) {
  const NarrationBlockPair block = joinedNarrationBlocks(previous_, frame);
  NarrationBins bins = spectrum_.forward(block);
  const float strength = strength_;
  for (std::size_t k = 0; k < narrationSpectrumSize; ++k) {
    const float power = bins.real[k] * bins.real[k] + bins.imaginary[k] * bins.imaginary[k];
    mask_[k] = narrationMask(power, noise_[k], strength, mask_[k]);
    bins.real[k] *= mask_[k];
    bins.imaginary[k] *= mask_[k];
  }
  const NarrationBlockPair inverse = spectrum_.inverse(bins);
  NarrationBlock result;
  for (std::size_t i = 0; i < narrationBlockSize; ++i) {
    result[i] = inverse[i] + overlap_[i];
    overlap_[i] = inverse[i + narrationBlockSize];
  }
  return result;
}

// y[n] = 0.9896 (y[n - 1] + x[n] - x[n - 1]), blended in by the strength. What is not finite ends here.
void NarrationVoiceProcessor::filter(NarrationBlock& samples) {
  for (float& sample : samples) {
    const float input = std::isfinite(sample) ? sample : 0;
    const float output = (highPassOutput_ + input - highPassInput_) * highPassCoefficient;
    highPassInput_ = input;
    highPassOutput_ = output;
    sample = (1 - strength_) * input + strength_ * output;
  }
}

void NarrationVoiceProcessor::level(NarrationBlock& samples) {
  const float wanted = narrationWantedGain(narrationRms(samples), gain_);
  const float target = 1 + strength_ * (wanted - 1);
  const float rate = narrationGainRate(target, gain_);
  for (float& sample : samples) {
    gain_ += rate * (target - gain_);
    sample = narrationLimited(gain_ * sample);
  }
}

} // namespace tessarin
