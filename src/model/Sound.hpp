#pragma once

#include "base/MediaTime.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace tessarin {

enum class PcmFormat : std::uint8_t { float32, int16, int32, other };

// Interleaved samples in the machine's byte order; full scale is 1.0 for float32. Does not own them.
struct PcmView {
  std::span<const std::byte> data;
  PcmFormat format = PcmFormat::other;
  std::int32_t channelCount = 0;
  std::size_t frameCount = 0; // one frame is a sample of each channel
};

// A stretch of sound together with what keeps it alive and unchanged. Cheap to copy, any thread.
struct AudioSample {
  PcmView pcm;
  std::int32_t sampleRate = 48000; // frames per second
  MediaTime presentationTime;      // of the first frame
  std::shared_ptr<const void> owner;

  MediaTime duration() const { return {static_cast<std::int64_t>(pcm.frameCount), sampleRate}; }
};

} // namespace tessarin
