#pragma once

#include <cmath>
#include <cstddef>

// The decisions of the chain that cleans a voice, for one value at a time. Single precision throughout, in
// the order that is written. Strengths are within 0 and 1. Any thread.
namespace tessarin {

inline constexpr std::size_t narrationBucketCount = 64;

// A value that is less, or no number, becomes the bound.
inline float atLeast(float value, float bound) {
  return value > bound ? value : bound;
}

inline float clampedTo(float value, float low, float high) {
  const float raised = atLeast(value, low);
  return raised < high ? raised : high;
}

// Which of 64 buckets of 1.6 dB each a block of this root mean square belongs to: the first one up to about
// -98 dB of full scale, the last one from full scale on.
inline std::size_t narrationLevelBucket(float rms) {
  const float level = (20 * std::log10(atLeast(rms, 0.00001F)) + 100) * 0.63F;
  return static_cast<std::size_t>(clampedTo(level, 0, narrationBucketCount - 1));
}

// The factor of a bin for its power, the power of the noise in it, and the factor it had in the block before.
// What is not above one and a half times the noise (at full strength) is brought down to the floor, 0.12 at
// full strength; a third of the way is gone in each block, so that no bin twitters.
inline float narrationMask(float power, float noise, float strength, float previous) {
  const float bounded = atLeast(power, 1e-8F);
  const float open = std::sqrt(atLeast(1 - 1.5F * strength * noise / bounded, 0));
  return atLeast(open, 1 - 0.88F * strength) * 0.35F + previous * 0.65F;
}

// The gain that brings speech of this root mean square to its target level. What is no speech gets no gain
// above 1, and never more than there is already.
inline float narrationWantedGain(float rms, float gain) {
  if (rms > 0.012F)
    return clampedTo(0.12F / rms, 0.25F, 3);
  return gain < 1 ? gain : 1;
}

// The share of the way to its target that a gain goes at each sample: 10 ms are most of the way down, and
// 150 ms most of the way up.
inline float narrationGainRate(float target, float gain) {
  return target < gain ? 0.0021F : 0.00014F;
}

// 1 dB below full scale.
inline float narrationLimited(float sample) {
  return clampedTo(sample, -0.8913F, 0.8913F);
}

} // namespace tessarin
