#include "modules/editing/SoundMix.hpp"

#include <algorithm>

namespace tessarin::editing {

namespace {

constexpr std::int64_t framesPerMs = 48;
constexpr std::int64_t blockFrames = 4800;
constexpr std::size_t channels = 2;

} // namespace

SoundMix::SoundMix(const SourceFile& file, const MovieComposition& composition, std::int64_t durationMs)
    : frames_(durationMs * framesPerMs),
      coder_(media::makeAacCoder(AudioSettings{}, media::AacSearch::thorough)),
      sequencer_(*coder_, channels) {
  lanes_.reserve(composition.audioLanes.size());
  for (const MovieAudioLane& lane : composition.audioLanes)
    lanes_.push_back(std::make_unique<SoundLane>(file, lane, composition.segments));
}

media::CodedSound SoundMix::next() {
  while (!isFinished_) {
    const std::int64_t count = std::min(blockFrames, frames_ - mixed_);
    limited_.clear();
    if (count > 0) {
      sum_.assign(static_cast<std::size_t>(count) * channels, 0.0F);
      for (const auto& lane : lanes_)
        lane->addTo(sum_);
      mixed_ += count;
      limiter_.take(sum_, limited_);
      sequencer_.append(limited_);
    } else {
      limiter_.finish(limited_);
      sequencer_.append(limited_);
      sequencer_.finish();
      isFinished_ = true;
    }
    media::CodedSound coded = sequencer_.take();
    if (!coded.sizes.empty())
      return coded;
  }
  return {};
}

} // namespace tessarin::editing
