#pragma once

#include "project/VideoEditProject.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessarin {

// Turns the computer's sound down under speech: by 12 dB at full strength, within some 15 ms, and up again
// within some 350 ms. Sound at 48 kHz goes through in blocks of 512 frames, beside the cleaned voice of the
// same time.
//
// Plain arithmetic in single precision. Allocates nothing. Belongs to one pass of one thread.
class NarrationDucking {
 public:
  // The strength is that of the project's narration; without one nothing changes. Where a clip mutes the
  // microphone, the voice does not count. The project has passed its checks, so its clips are in order.
  explicit NarrationDucking(const VideoEditProjectDTO& project);

  // The next block, changed in place: at most 512 interleaved frames of two channels, and exactly 512 samples
  // of voice, zeros where it has ended. Any other number ends the process. Only the last block is shorter.
  void duck(std::span<float> system, std::span<const float> voice);

 private:
  bool isMuted(std::int64_t position);

  std::vector<ClipSpan> muted_;
  std::size_t next_ = 0; // the first muted clip that has not ended
  float duckedGain_;
  float gain_ = 1;
  std::int64_t position_ = 0; // samples so far
};

} // namespace tessarin
