// What the health monitor takes for audible.

#include "recording/RecordingHealthMonitor.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace tessarin {
namespace {

template<class Sample>
PcmView viewOf(const std::vector<Sample>& samples, PcmFormat format, std::int32_t channels) {
  return {std::as_bytes(std::span(samples)), format, channels,
          samples.size() / static_cast<std::size_t>(channels)};
}

TEST(PcmAudibility, LiesAboveAMeanSquareOfAMillionth) {
  const auto ofFloats = [](float value, std::int32_t channels) {
    return isAudible(viewOf(std::vector<float>(80, value), PcmFormat::float32, channels));
  };
  EXPECT_FALSE(ofFloats(0, 2));
  EXPECT_FALSE(ofFloats(0.00099F, 2));
  EXPECT_TRUE(ofFloats(0.00101F, 2));
  EXPECT_TRUE(ofFloats(-0.00101F, 1));
  // 1e-3 of full scale is 32.768 in 16 bits and 2147483.6 in 32 bits.
  EXPECT_FALSE(isAudible(viewOf(std::vector<std::int16_t>(8, 32), PcmFormat::int16, 2)));
  EXPECT_TRUE(isAudible(viewOf(std::vector<std::int16_t>(8, -33), PcmFormat::int16, 2)));
  EXPECT_FALSE(isAudible(viewOf(std::vector<std::int32_t>(8, 2'147'483), PcmFormat::int32, 2)));
  EXPECT_TRUE(isAudible(viewOf(std::vector<std::int32_t>(8, 2'147'484), PcmFormat::int32, 2)));
}

TEST(PcmAudibility, TakesOneToEightChannels) {
  const std::vector<float> loud(72, 0.5F);
  for (const std::int32_t channels : {1, 2, 8})
    EXPECT_TRUE(isAudible(viewOf(loud, PcmFormat::float32, channels)));
  EXPECT_FALSE(isAudible(viewOf(loud, PcmFormat::float32, 9)));
  EXPECT_FALSE(isAudible({std::as_bytes(std::span(loud)), PcmFormat::float32, 0, 72}));
  EXPECT_FALSE(isAudible({std::as_bytes(std::span(loud)), PcmFormat::float32, -1, 72}));
}

TEST(PcmAudibility, ListensToTheFirst4096FramesOnly) {
  std::vector<float> samples(2 * 4097, 0.0F);
  samples[2 * 4096] = 100.0F;
  EXPECT_FALSE(isAudible(viewOf(samples, PcmFormat::float32, 2)));
  samples[2 * 4096 - 1] = 100.0F;
  EXPECT_TRUE(isAudible(viewOf(samples, PcmFormat::float32, 2)));
}

TEST(PcmAudibility, HearsNothingInWhatItCannotRead) {
  const std::vector<float> loud(4, 0.5F);
  EXPECT_FALSE(isAudible(viewOf(loud, PcmFormat::other, 2)));
  EXPECT_FALSE(isAudible({{}, PcmFormat::float32, 2, 0}));
  EXPECT_FALSE(isAudible({{}, PcmFormat::float32, 2, 100})); // tells of frames that are not there
  for (const float bad : {std::nanf(""), std::numeric_limits<float>::infinity()})
    EXPECT_FALSE(isAudible(viewOf(std::vector<float>{0.5F, 0.5F, bad, 0.5F}, PcmFormat::float32, 2)));
}

} // namespace
} // namespace tessarin
