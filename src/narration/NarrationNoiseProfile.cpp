#include "narration/NarrationNoiseProfile.hpp"

#include <algorithm>
#include <numeric>

namespace tessarin {

namespace {

constexpr double quietestShare = 0.1;

} // namespace

NarrationNoiseProfile::NarrationNoiseProfile() : powers_(narrationBucketCount, NarrationPowers{}) {}

void NarrationNoiseProfile::observe(std::span<const float> frame) {
  const NarrationBlockPair block = joinedNarrationBlocks(previous_, frame);
  const std::size_t bucket = narrationLevelBucket(narrationRms(block));
  const NarrationBins bins = spectrum_.forward(block);
  ++counts_[bucket];
  NarrationPowers& sum = powers_[bucket];
  for (std::size_t k = 0; k < narrationSpectrumSize; ++k)
    sum[k] += bins.real[k] * bins.real[k] + bins.imaginary[k] * bins.imaginary[k];
}

NarrationPowers NarrationNoiseProfile::estimate() const {
  const auto total = std::accumulate(counts_.begin(), counts_.end(), std::int64_t{0});
  const auto target = std::max(
      static_cast<std::int64_t>(std::ceil(static_cast<double>(total) * quietestShare)), std::int64_t{1});
  NarrationPowers noise{};
  std::int64_t used = 0;
  for (std::size_t bucket = 0; bucket < narrationBucketCount && used < target; ++bucket) {
    if (counts_[bucket] < 1)
      continue;
    const std::int64_t take = std::min(target - used, counts_[bucket]);
    for (std::size_t k = 0; k < narrationSpectrumSize; ++k)
      noise[k] += powers_[bucket][k] * static_cast<float>(take) / static_cast<float>(counts_[bucket]);
    used += take;
  }
  for (float& power : noise)
    power /= static_cast<float>(std::max(used, std::int64_t{1}));
  return noise;
}

} // namespace tessarin
