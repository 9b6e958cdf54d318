#pragma once

#include "modules/editing/CutClips.hpp"
#include "modules/editing/StereoReader.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tessarin::editing {

// What the clips of a cut sound like end to end: two channels at 48000 frames a second. Before the beginning
// and behind the end there is the same sound backwards, so that a packet there has no step inside. Confined
// to one thread. Failures are MovieEditingFailure.
class ClipSound {
 public:
  // File, track and clips outlive this; there is at least one clip.
  ClipSound(const SourceFile& file, const container::Track& track, const std::vector<CutClip>& clips);

  std::int64_t frames() const { return frames_; }
  // Fills the whole span, interleaved, with the sound from the frame of the output on.
  void read(std::int64_t frame, std::span<float> into);

 private:
  void readInside(std::int64_t frame, std::span<float> into);
  void readBackwards(std::int64_t end, std::span<float> into);

  const std::vector<CutClip>& clips_;
  const std::int64_t frames_;
  StereoReader reader_;
  std::optional<std::int64_t> next_; // frame of the source that the reader yields next
};

} // namespace tessarin::editing
