#pragma once

#include "backends/pipewire/SampleRing.hpp"

#include <pipewire/pipewire.h>
#include <spa/node/io.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tessarin::pipewire {

inline constexpr std::int32_t soundRate = 48000;
inline constexpr std::size_t soundChannels = 2;

// In nanoseconds.
constexpr std::int64_t soundLength(std::size_t frameCount) {
  return static_cast<std::int64_t>(frameCount) * 1'000'000'000 / soundRate;
}

// The part of a stream of sound that runs on the library's data thread, which must not wait: takes buffers
// as they come, with what the graph's clock says about them, and keeps them until they are fetched.
class SoundCapture {
 public:
  SoundCapture();

  // Where the graph's clock is told, or null, behind which it is not read any more. On the loop's thread.
  void setPosition(const spa_io_position* position) noexcept;
  // Takes what the stream has. On the data thread.
  void takeBuffers(pw_stream* stream) noexcept;

  // What has been taken; popped on the loop's thread.
  SampleRing& ring() { return ring_; }

 private:
  void take(pw_stream* stream, const spa_data& data) noexcept;
  void readClock(BufferRecord& record) noexcept;

  SampleRing ring_;
  std::atomic<const spa_io_position*> position_ = nullptr;
  std::atomic<bool> isReading_ = false; // the data thread reads at position_
};

} // namespace tessarin::pipewire
