#pragma once

#include "narration/NarrationTransform.hpp"

#include <span>

namespace tessarin {

// How far the analysis goes on at a time: half of what is analysed, so that each sample is in two blocks.
inline constexpr std::size_t narrationBlockSize = 512;

// Samples of one channel at 48 kHz, full scale 1.
using NarrationBlock = std::array<float, narrationBlockSize>;
using NarrationBlockPair = std::array<float, narrationSpectrumSize>; // a block behind the one before it
// The power of each bin: the square of its magnitude.
using NarrationPowers = std::array<float, narrationSpectrumSize>;

// Ends the process unless there are as many samples as there must be: a wrong size is a flaw of the caller.
void requireNarrationSize(std::size_t size, std::size_t expected);

// The samples of `previous`, then those of `frame`, which take the place of `previous`.
NarrationBlockPair joinedNarrationBlocks(NarrationBlock& previous, std::span<const float> frame);

// The root of the mean of the squares. Not for none.
float narrationRms(std::span<const float> samples);

// From samples to a spectrum and back. Both ways are weighed with the root of Hann's window, so that what
// goes there and back is weighed with Hann's window, which sums up to 1 where blocks overlap by half.
//
// Constant once it is made: any thread.
class NarrationSpectrum {
 public:
  NarrationSpectrum();

  // The spectrum of exactly 1024 samples (any other number ends the process), each times its `window`.
  NarrationBins forward(std::span<const float> samples) const;
  // The real parts of the inverse transform, each times its `window` and 1 / 1024.
  NarrationBlockPair inverse(const NarrationBins& bins) const;

  const NarrationBlockPair& window() const { return window_; }

 private:
  NarrationTransform setup_;
  NarrationBlockPair window_;
};

} // namespace tessarin
