#pragma once

#include "narration/NarrationSpectrum.hpp"
#include "narration/NarrationVoiceSteps.hpp"

#include <cstdint>
#include <vector>

namespace tessarin {

// Learns the noise of a recorded voice from the quietest tenth of the recording itself. The whole of it goes
// through once, block by block; what is kept is a histogram over loudness, with the summed power spectrum of
// the blocks in each bucket: 256 KB, however long the recording is.
//
// Belongs to one pass of one thread.
class NarrationNoiseProfile {
 public:
  NarrationNoiseProfile();

  // The next exactly 512 samples; any other number ends the process. They are finite: a sample that is not
  // would be in the estimate of every bin.
  void observe(std::span<const float> frame);

  // The mean power of each bin over the quietest tenth of the blocks so far, at least one; a bucket of which
  // only a part is needed counts with its mean. All zeros before the first block.
  NarrationPowers estimate() const;

 private:
  NarrationSpectrum spectrum_;
  std::vector<NarrationPowers> powers_; // summed, a bucket each
  std::array<std::int64_t, narrationBucketCount> counts_{};
  NarrationBlock previous_{};
};

} // namespace tessarin
