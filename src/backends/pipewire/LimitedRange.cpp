#include "backends/pipewire/LimitedRange.hpp"

#include <algorithm>
#include <cstddef>

namespace tessarin::pipewire {

namespace {

// Compiled with vectors in mind: 32-bit numbers, no tables, no branches.
template<int origin, int targetOrigin, int factor>
void widen(std::span<const std::uint8_t> samples, std::uint8_t* target) {
  constexpr int one = 1 << 14;
  const auto* source = samples.data();
  const std::size_t count = samples.size();
  for (std::size_t i = 0; i < count; ++i) {
    const int value = ((source[i] - origin) * factor + targetOrigin * one + one / 2) >> 14;
    target[i] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
  }
}

} // namespace

void widenLuma(std::span<const std::uint8_t> samples, std::uint8_t* target) {
  widen<16, 0, 19077>(samples, target); // 255 / 219
}

void widenChroma(std::span<const std::uint8_t> samples, std::uint8_t* target) {
  widen<128, 128, 18651>(samples, target); // 255 / 224
}

} // namespace tessarin::pipewire
