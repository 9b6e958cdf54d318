#pragma once

#include "modules/editing/Limiter.hpp"
#include "modules/editing/SoundLane.hpp"
#include "modules/media/AudioSequencer.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace tessarin::editing {

// All lanes of an output added up, kept within full scale and coded as AAC-LC of two channels at 48000 frames
// and 192 kbit a second. Confined to one thread once made. Throws MovieEditingFailure for the source, and
// media::CoderFailure.
class SoundMix {
 public:
  // File and composition outlive the mix. At least one lane.
  SoundMix(const SourceFile& file, const MovieComposition& composition, std::int64_t durationMs);

  const container::SampleDescription& description() const { return coder_->description(); }
  std::int64_t frames() const { return frames_; }
  // The next packets, of about a tenth of a second; none once all are out.
  media::CodedSound next();

 private:
  std::vector<std::unique_ptr<SoundLane>> lanes_;
  std::int64_t frames_ = 0;
  std::int64_t mixed_ = 0;
  bool isFinished_ = false;
  Limiter limiter_;
  std::vector<float> sum_;
  std::vector<float> limited_;
  std::unique_ptr<media::AacCoder> coder_;
  media::AudioSequencer sequencer_;
};

} // namespace tessarin::editing
