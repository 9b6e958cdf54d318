#include "narration/NarrationSpectrum.hpp"

#include <algorithm>
#include <cmath>
#include <exception>

namespace tessarin {

namespace {

constexpr float twoPi = 6.283185F;
constexpr float sizeInverse = 0.0009765625F; // 1 / 1024

} // namespace

void requireNarrationSize(std::size_t size, std::size_t expected) {
  if (size != expected)
    std::terminate();
}

NarrationBlockPair joinedNarrationBlocks(NarrationBlock& previous, std::span<const float> frame) {
  requireNarrationSize(frame.size(), narrationBlockSize);
  NarrationBlockPair block;
  std::copy(previous.begin(), previous.end(), block.begin());
  std::copy(frame.begin(), frame.end(), block.begin() + narrationBlockSize);
  std::copy(frame.begin(), frame.end(), previous.begin());
  return block;
}

// Sums in lanes, which are vectors to the compiler and add up the same on every machine; and in double
// precision, in which samples that are all alike are exactly as loud as each of them.
float narrationRms(std::span<const float> samples) {
  std::array<double, 16> lanes{};
  const std::size_t whole = samples.size() / lanes.size() * lanes.size();
  const auto add = [&](std::size_t lane, double sample) { lanes[lane] += sample * sample; };
  for (std::size_t i = 0; i < whole; i += lanes.size())
    for (std::size_t lane = 0; lane < lanes.size(); ++lane)
      add(lane, samples[i + lane]);
  for (std::size_t i = whole; i < samples.size(); ++i)
    add(i - whole, samples[i]);
  for (std::size_t half = lanes.size() / 2; half > 0; half /= 2)
    for (std::size_t lane = 0; lane < half; ++lane)
      lanes[lane] += lanes[lane + half];
  return static_cast<float>(std::sqrt(lanes[0] / static_cast<double>(samples.size())));
}

NarrationSpectrum::NarrationSpectrum() {
  for (std::size_t i = 0; i < window_.size(); ++i)
    window_[i] = std::sqrt(0.5F - 0.5F * std::cos(twoPi * static_cast<float>(i) * sizeInverse));
}

NarrationBins NarrationSpectrum::forward(std::span<const float> samples) const {
  requireNarrationSize(samples.size(), narrationSpectrumSize);
  NarrationBins weighed;
  for (std::size_t i = 0; i < narrationSpectrumSize; ++i)
    weighed.real[i] = samples[i] * window_[i];
  weighed.imaginary.fill(0);
  NarrationBins bins;
  setup_.forward(weighed, bins);
  return bins;
}

NarrationBlockPair NarrationSpectrum::inverse(const NarrationBins& bins) const {
  NarrationBins spent = bins;
  NarrationBins block;
  setup_.inverse(spent, block);
  for (std::size_t i = 0; i < narrationSpectrumSize; ++i)
    block.real[i] = block.real[i] * window_[i] * sizeInverse;
  return block.real;
}

} // namespace tessarin
