#pragma once

#include "base/SerialQueue.hpp"
#include "narration/AudioWaveformModels.hpp"
#include "ports/MovieEditing.hpp"

#include <utility>

namespace tessarin {

// The peak of the sound of a recording in each of a number of equal slices of its length, all tracks
// together. Nothing is written. Any thread.
class AudioWaveformService {
 public:
  // The assets outlive the service. Every audio track is decoded on a queue of its own.
  AudioWaveformService(MediaAssets& assets, QueueFactory makeQueue)
      : assets_(assets), makeQueue_(std::move(makeQueue)) {}

  // Reads the whole sound of the file. Throws Failure<AudioWaveformServiceError>.
  AudioWaveformPayload generate(const ValidatedAudioWaveformRequest& request) const;

 private:
  MediaAssets& assets_;
  QueueFactory makeQueue_;
};

} // namespace tessarin
