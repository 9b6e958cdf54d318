#pragma once

#include "base/Json.hpp"
#include "model/Sound.hpp"

#include <cstdint>
#include <mutex>

namespace tessarin {

// How loud a stretch of sound was: full scale is 1. Plain value.
struct RecordingAudioLevelPayload {
  double rms = 0;
  double peak = 0;
  std::int64_t sampleCount = 0; // of all channels together

  static constexpr auto fields() {
    return json::table(json::field("rms", &RecordingAudioLevelPayload::rms),
                       json::field("peak", &RecordingAudioLevelPayload::peak),
                       json::field("sampleCount", &RecordingAudioLevelPayload::sampleCount));
  }
  bool operator==(const RecordingAudioLevelPayload&) const = default;
};

// Sums up the level of all sound that it is given. Any thread.
class SystemAudioLevelCollector {
 public:
  // Takes whole buffers of 32-bit floats; others are ignored.
  void collect(const PcmView& pcm);

  // Of everything so far; zeros when that was nothing.
  RecordingAudioLevelPayload level() const;

 private:
  mutable std::mutex lock_;
  double squareSum_ = 0; // the rest is guarded by lock_
  double peak_ = 0;
  std::int64_t sampleCount_ = 0;
};

} // namespace tessarin
