#pragma once

#include <cstdint>
#include <optional>

namespace tessarin::pipewire {

// Gives the buffers of a sound device smooth times. A device tells about each buffer when it was taken, with
// jitter; and its own clock runs a little faster or slower than the host's. A delay-locked loop follows that
// clock: jitter is filtered out, drift is not. What is really missing comes through as a jump of its size.
//
// Times are nanoseconds of the host clock. Pure; confined to one thread at a time.
class SampleClock {
 public:
  // A difference that no jitter explains.
  static constexpr std::int64_t discontinuity = 20'000'000;
  // One that no jitter explains when so many buffers in a row have it, as when a graph changes the size of
  // its buffers.
  static constexpr std::int64_t step = 3'000'000;
  static constexpr int stepCount = 8;

  explicit SampleClock(std::int32_t sampleRate) : nominalPeriod_(1e9 / sampleRate) {}

  // The time of the buffer's first frame, as told by the device in, smoothed out. Strictly later than that
  // of the buffer before, whatever the device tells. `missingFrames` are those known to be lost before it.
  std::int64_t timeOf(std::int64_t toldTime, std::int64_t frameCount, std::int64_t missingFrames = 0);

  // How long the device takes for a frame, in nanoseconds of the host clock.
  double period() const { return period_ > 0 ? period_ : nominalPeriod_; }

 private:
  void anchor(std::int64_t toldTime);
  bool isStep(double error);
  void follow(double error, double elapsed);

  const double nominalPeriod_;
  double period_ = 0;                    // 0 before the first buffer
  std::int64_t base_ = 0;                // of next_, so that its fraction stays exact over hours
  double next_ = 0;                      // where the next buffer is expected, counted from base_
  double followed_ = 0;                  // nanoseconds since the anchor
  double stepError_ = 0;                 // of the first of the buffers in a row that may be a step
  int stepBuffers_ = 0;                  // how many those are
  std::optional<std::int64_t> lastTime_; // as given out
};

} // namespace tessarin::pipewire
