#pragma once

#include "narration/NarrationSpectrum.hpp"

namespace tessarin {

// Cleans a recorded voice: a gate for each bin of the spectrum that closes on what is no louder than the
// noise, a high-pass filter against what rumbles, a slow automatic gain, and a hard limit. One channel at
// 48 kHz goes through in blocks of 512 samples. At strength 0 it is what came in, up to the limit.
//
// What comes out lags what went in by 512 samples: the first block is to be dropped, and a block of zeros
// brings out the last one. All values are finite and within +-0.8913, whatever went in; a sample that is not
// finite silences the three blocks that have to do with it, and nothing later.
//
// Plain arithmetic in single precision, in a fixed order: the same input gives the same output. Allocates
// nothing. Belongs to one pass of one thread.
class NarrationVoiceProcessor {
 public:
  // The noise is the power of each of the 1024 bins, as a NarrationNoiseProfile estimates it. Throws
  // Failure<VideoEditExportError> with invalidProject unless there are exactly 1024 powers, all finite and
  // none below 0, and the strength is within 0 and 1.
  NarrationVoiceProcessor(std::span<const float> noise, float strength);

  // The next exactly 512 samples; any other number ends the process.
  NarrationBlock process(std::span<const float> frame);

 private:
  NarrationBlock gated(std::span<const float> frame);
  void filter(NarrationBlock& samples);
  void level(NarrationBlock& samples);

  NarrationSpectrum spectrum_;
  NarrationPowers noise_;
  const float strength_;
  NarrationBlock previous_{};
  NarrationBlock overlap_{}; // the second half of the block before, on its way out
  NarrationPowers mask_;     // the factor of each bin
  float highPassInput_ = 0;  // the filter's last input
  float highPassOutput_ = 0; // and output
  float gain_ = 1;
};

} // namespace tessarin
