#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace tessarin::editing {

// Keeps stereo sound within full scale. Sound that is within it passes unchanged. Ahead of what is beyond it
// the sound gets softer over five milliseconds, just so far that the loudest sample reaches full scale, and
// afterwards it comes back within half a second or so; so nothing is cut, which would be heard as
// crackling. Confined to one thread.
class Limiter {
 public:
  // Interleaved, in; what is ready is appended to the output, later by five milliseconds.
  void take(std::span<const float> frames, std::vector<float>& output);
  // Appends what is left.
  void finish(std::vector<float>& output);

 private:
  static constexpr std::size_t ahead = 240; // frames, 5 ms

  struct Minimum {
    std::uint64_t frame = 0;
    float gain = 1;
  };

  float smoothedGain(float gain);

  std::uint64_t taken_ = 0;      // frames
  std::deque<Minimum> minimums_; // rising, over the last frames
  float released_ = 1;
  std::array<float, ahead> gains_ = [] {
    std::array<float, ahead> ones{};
    ones.fill(1);
    return ones;
  }();
  std::size_t reduced_ = 0; // gains that are below one
  std::array<float, 2 * ahead> delayed_{};
};

} // namespace tessarin::editing
