#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessarin::pipewire {

// What one buffer of a device was, beside its samples. In nanoseconds; times on the host clock.
struct BufferRecord {
  std::int64_t time = 0;        // of the graph's cycle that brought it
  std::int64_t ticks = 0;       // the same on the clock of the device that drives the graph
  std::uint32_t driverID = 0;   // the node of that device
  std::int64_t driverDelay = 0; // how long that device takes from a cycle to being heard, or the other way
  std::int64_t pathDelay = 0;   // how long the sound was on its way through the graph
  std::size_t frameCount = 0;
};

// Carries buffers of interleaved sound from the thread that must not wait, which pushes, to one that may be
// late, which pops. Neither ever waits for the other.
class SampleRing {
 public:
  // How much it holds, in frames and in buffers.
  SampleRing(std::size_t frameCapacity, std::size_t bufferCapacity, std::size_t channelCount);

  // False when there is no room: the buffer is lost. Allocates nothing. The pushing thread.
  bool push(const float* samples, const BufferRecord& record) noexcept;

  // The oldest buffer; null when there is none. The popping thread, as is pop().
  const BufferRecord* front() const noexcept;
  // Writes the oldest buffer's samples, frameCount times channelCount of them, and lets go of it.
  void pop(float* samples) noexcept;

 private:
  const std::size_t channelCount_;
  std::vector<float> samples_;
  std::vector<BufferRecord> records_;
  // Counts that only grow; the one who writes a count alone owns what it has not yet counted.
  std::atomic<std::size_t> pushed_ = 0;
  std::atomic<std::size_t> popped_ = 0;
  std::atomic<std::size_t> poppedFrames_ = 0;
  std::size_t pushedFrames_ = 0; // the pushing thread's own
};

} // namespace tessarin::pipewire
