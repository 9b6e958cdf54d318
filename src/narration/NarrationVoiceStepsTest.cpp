#include "narration/NarrationVoiceSteps.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <numbers>

namespace tessarin {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float greatest = std::numeric_limits<float>::max();

TEST(NarrationLevelBucket, counts63ToAHundredDecibels) {
  const struct {
    double decibels;
    std::size_t bucket;
  } cases[] = {
      {-100, 0},   {-98.42, 0}, {-98.40, 1}, {-60, 25}, // 25.2
      {-20, 50},                                        // 50.4
      {-4.77, 59}, {-4.76, 60},                         // 60 / 0.63 = 95.238
      {-1.59, 61}, {-1.58, 62}, {-0.01, 62}, {0.01, 63}, {6, 63}, {100, 63},
  };
  for (const auto& it : cases)
    EXPECT_EQ(narrationLevelBucket(static_cast<float>(std::pow(10, it.decibels / 20))), it.bucket)
        << it.decibels;
  EXPECT_EQ(narrationLevelBucket(1), 63U);
}

TEST(NarrationLevelBucket, putsSilenceAndWhatIsFainterStillIntoTheFirst) {
  for (const float rms : {0.0F, 0.00001F, 0.000001F, 1e-40F, nan})
    EXPECT_EQ(narrationLevelBucket(rms), 0U) << rms;
  EXPECT_EQ(narrationLevelBucket(infinity), 63U);
}

TEST(NarrationMask, goesAThirdOfTheWayFromTheOneBefore) {
  // power, noise, strength, before, expected
  const float cases[][5] = {
      // Without noise every bin stays open.
      {1, 0, 1, 1, 1},
      {0, 0, 1, 1, 1},
      // At the noise's own power nothing is left but the floor: 0.12 x 0.35 + 0.65.
      {1, 1, 1, 1, 0.692F},
      {1, 1, 1, 0.12F, 0.12F},
      // The noise counts one and a half times: nothing is left up to there, and more above it.
      {1.5F, 1, 1, 0, 0.042F},
      {3, 1, 1, 0, 0.24748737F}, // the root of a half
      {150, 1, 1, 0, 0.3482456F},
      // At half the strength it counts three quarters, and the floor is 0.56.
      {1, 1, 0.5F, 0, 0.196F},
      {3, 1, 0.5F, 0, 0.30310889F},  // the root of three quarters
      {1, 1, 0.25F, 0, 0.27669930F}, // the root of 0.625, a little above 0.78
      // At none of it every bin is open.
      {1, 1, 0, 1, 1},
      {0, 1, 0, 1, 1},
      {1, 1000, 0, 0.5F, 0.675F},
      // No power counts as 1e-8.
      {0, 1e-8F, 0.5F, 0, 0.196F},
      {0, 4e-9F, 1, 0, 0.22135944F}, // the root of 0.4
      {1e-9F, 4e-9F, 1, 0, 0.22135944F},
  };
  for (const auto& it : cases)
    EXPECT_NEAR(narrationMask(it[0], it[1], it[2], it[3]), it[4], 1e-6)
        << it[0] << " " << it[1] << " " << it[2] << " " << it[3];
}

TEST(NarrationMask, staysOneForEver) {
  float mask = 1;
  for (int block = 0; block < 1000; ++block)
    mask = narrationMask(0.5F, 0, 1, mask);
  EXPECT_EQ(mask, 1.0F);
}

TEST(NarrationMask, comesDownToTheFloor) {
  float mask = 1;
  for (int block = 0; block < 60; ++block)
    mask = narrationMask(0.5F, 0.5F, 1, mask);
  EXPECT_NEAR(mask, 0.12, 1e-6);
}

TEST(NarrationMask, isFiniteForAnyPower) {
  for (const float power : {nan, infinity, 0.0F, 1e-45F, greatest})
    for (const float noise : {0.0F, 1e-45F, 1.0F, greatest})
      for (const float strength : {0.0F, 0.25F, 1.0F}) {
        const float mask = narrationMask(power, noise, strength, 1);
        EXPECT_TRUE(mask >= 0.69F && mask <= 1) << power << " " << noise << " " << strength << ": " << mask;
      }
}

TEST(NarrationWantedGain, bringsSpeechToItsTarget) {
  const float cases[][3] = {
      {0.12F, 1, 1},
      {0.06F, 1, 2},
      {0.24F, 1, 0.5F},
      {0.04F, 1, 3},
      {0.0401F, 1, 2.9925187F},
      {0.0399F, 1, 3},
      {0.02F, 1, 3},
      {0.0121F, 1, 3},
      {0.48F, 1, 0.25F},
      {0.47F, 1, 0.25531915F},
      {0.5F, 1, 0.25F},
      {infinity, 1, 0.25F},
      // Not what the gain is by now, as long as it is speech.
      {0.12F, 3, 1},
      {0.12F, 0.25F, 1},
  };
  for (const auto& it : cases)
    EXPECT_NEAR(narrationWantedGain(it[0], it[1]), it[2], 1e-6) << it[0] << " " << it[1];
}

TEST(NarrationWantedGain, neverRisesInSilence) {
  for (const float rms : {0.0F, 0.0119F, 0.012F}) {
    EXPECT_EQ(narrationWantedGain(rms, 0.25F), 0.25F) << rms;
    EXPECT_EQ(narrationWantedGain(rms, 1), 1.0F) << rms;
    EXPECT_EQ(narrationWantedGain(rms, 1.5F), 1.0F) << rms;
    EXPECT_EQ(narrationWantedGain(rms, 3), 1.0F) << rms;
  }
}

TEST(NarrationGainRate, isFastDownAndSlowUp) {
  EXPECT_EQ(narrationGainRate(0.5F, 1), 0.0021F);
  EXPECT_EQ(narrationGainRate(0.99999F, 1), 0.0021F);
  EXPECT_EQ(narrationGainRate(1, 1), 0.00014F);
  EXPECT_EQ(narrationGainRate(3, 1), 0.00014F);
}

TEST(NarrationGainRate, takesItsTimeConstants) {
  const struct {
    float target;
    int samples;
  } cases[] = {{0.25F, 476}, {3, 7143}};
  for (const auto& it : cases) {
    float gain = 1;
    int samples = 0;
    while (std::fabs(gain - it.target) > std::fabs(1 - it.target) / std::numbers::e_v<float>) {
      gain += narrationGainRate(it.target, gain) * (it.target - gain);
      ++samples;
    }
    EXPECT_NEAR(samples, it.samples, 1) << it.target;
  }
}

TEST(NarrationLimited, endsAtADecibelBelowFullScale) {
  const float cases[][2] = {{0, 0},
                            {0.8912F, 0.8912F},
                            {0.8913F, 0.8913F},
                            {0.8914F, 0.8913F},
                            {-0.8912F, -0.8912F},
                            {-0.8914F, -0.8913F},
                            {greatest, 0.8913F},
                            {-infinity, -0.8913F},
                            {1e-40F, 1e-40F}};
  for (const auto& it : cases)
    EXPECT_EQ(narrationLimited(it[0]), it[1]) << it[0];
}

} // namespace
} // namespace tessarin
