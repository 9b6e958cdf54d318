#include "backends/pipewire/LimitedRange.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace tessarin::pipewire {
namespace {

TEST(LimitedRange, IsWidenedAsRealNumbersAre) {
  std::array<std::uint8_t, 256> samples{};
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<std::uint8_t>(i);
  }
  std::array<std::uint8_t, 256> luma{};
  std::array<std::uint8_t, 256> chroma = samples;
  widenLuma(samples, luma.data());
  widenChroma(chroma, chroma.data());
  for (int i = 0; i < 256; ++i) {
    const auto place = static_cast<std::size_t>(i);
    EXPECT_NEAR(luma[place], std::clamp((i - 16) * 255.0 / 219, 0.0, 255.0), 0.51) << i;
    EXPECT_NEAR(chroma[place], std::clamp(128 + (i - 128) * 255.0 / 224, 0.0, 255.0), 0.51) << i;
  }
  EXPECT_EQ(luma[16], 0);
  EXPECT_EQ(luma[235], 255);
  EXPECT_EQ(chroma[128], 128);
}

} // namespace
} // namespace tessarin::pipewire
