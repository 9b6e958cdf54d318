#pragma once

#include <cstdint>
#include <span>

// Samples of 8 bits with limited range (luma from 16 to 235, chroma from 16 to 240), widened to full range.
// The target has as many bytes as there are samples, and may be where they are. Any thread.
namespace tessarin::pipewire {

void widenLuma(std::span<const std::uint8_t> samples, std::uint8_t* target);
void widenChroma(std::span<const std::uint8_t> samples, std::uint8_t* target);

} // namespace tessarin::pipewire
