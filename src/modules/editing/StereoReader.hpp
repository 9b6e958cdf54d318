#pragma once

#include "modules/editing/SoundReader.hpp"

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace tessarin::editing {

// A track of sound as one stream of two channels at 48000 frames a second on the file's time line, silent
// where the track tells nothing. One channel is heard on both sides. Confined to one thread. Failures are
// MovieEditingFailure.
class StereoReader {
 public:
  // The file outlives the reader.
  StereoReader(const SourceFile& file, const container::Track& track) : reader_(file, track) {}

  // The next frame read is this one.
  void seek(std::int64_t frame);
  // Fills the whole span, interleaved.
  void read(std::span<float> frames);

 private:
  struct Block {
    std::int64_t position = 0; // of the first frame
    std::vector<float> frames; // interleaved
  };

  bool fetch();
  void convert(const SoundStretch& stretch);
  void beginRow(const SoundStretch& stretch);
  void resample(const float* const* channels, std::int64_t frames);
  void endRow();

  SoundReader reader_;
  std::int64_t position_ = 0;
  std::deque<Block> blocks_;
  bool hasEnded_ = false;

  // Of the row of stretches that follow one another.
  std::unique_ptr<SwrContext, media::FreeResampler> resampler_; // none where there is nothing to be converted
  std::int32_t rate_ = 0;
  std::size_t channelCount_ = 0;
  std::int64_t rowEnd_ = 0;       // of the row, frames of the track
  std::int64_t nextPosition_ = 0; // of what the resampler yields next
};

} // namespace tessarin::editing
