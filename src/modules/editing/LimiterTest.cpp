#include "modules/editing/Limiter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace tessarin::editing {
namespace {

// In stretches of uneven lengths.
std::vector<float> limited(const std::vector<float>& frames) {
  Limiter limiter;
  std::vector<float> output;
  std::mt19937 random(7);
  for (std::size_t at = 0; at < frames.size();) {
    const std::size_t count = std::min<std::size_t>(2 * (1 + random() % 700), frames.size() - at);
    limiter.take(std::span(frames).subspan(at, count), output);
    at += count;
  }
  limiter.finish(output);
  return output;
}

// A tone in both channels, the right one softer.
std::vector<float> tone(std::size_t frames, double amplitude) {
  std::vector<float> samples;
  samples.reserve(2 * frames);
  for (std::size_t i = 0; i < frames; ++i) {
    const double value = amplitude * std::sin(static_cast<double>(i) * 0.13);
    samples.insert(samples.end(), {static_cast<float>(value), static_cast<float>(value / 2)});
  }
  return samples;
}

TEST(Limiter, LeavesWhatIsWithinFullScaleAsItIs) {
  for (const std::size_t frames : {0U, 1U, 239U, 240U, 241U, 5000U}) {
    const auto sound = tone(frames, 1.0);
    EXPECT_EQ(limited(sound), sound) << frames;
  }
}

TEST(Limiter, KeepsWhatIsBeyondWithinFullScaleWithoutCuttingIt) {
  const auto sound = tone(20000, 1.8);
  const auto output = limited(sound);
  ASSERT_EQ(output.size(), sound.size());
  float loudest = 0;
  for (std::size_t i = 0; i < output.size(); i += 2) {
    loudest = std::max(loudest, std::abs(output[i]));
    // Both channels alike, so that nothing moves between left and right.
    if (std::abs(sound[i]) > 0.1F) {
      EXPECT_NEAR(output[i + 1] / sound[i + 1], output[i] / sound[i], 1e-4) << i;
    }
  }
  EXPECT_LE(loudest, 1.0F + 1e-6F);
  EXPECT_GT(loudest, 0.97F);
  // The gain hardly moves within a wave, so that its form stays.
  for (std::size_t i = 2000; i + 100 < 38000; i += 2) {
    if (std::abs(sound[i]) > 0.5F && std::abs(sound[i + 2]) > 0.5F) {
      EXPECT_NEAR(output[i] / sound[i], output[i + 2] / sound[i + 2], 2e-3) << i;
    }
  }
}

TEST(Limiter, GetsSoftAheadOfAPeakAndComesBackAfterIt) {
  std::vector<float> sound(2 * 96000, 0.5F);
  sound[2 * 48000] = 2.0F;
  const auto output = limited(sound);
  EXPECT_EQ(output[2 * (48000 - 480)], 0.5F);
  EXPECT_NEAR(output[2 * 48000], 1.0F, 1e-5F);
  EXPECT_LT(output[2 * (48000 - 24)], 0.3F);
  EXPECT_LT(output[2 * (48000 + 480)], 0.45F);
  EXPECT_EQ(output[2 * (48000 + 47000)], 0.5F);
}

TEST(Limiter, TakesWhatIsNoNumberForSilence) {
  std::vector<float> sound(2000, 0.25F);
  sound[500] = std::numeric_limits<float>::infinity();
  sound[501] = std::numeric_limits<float>::quiet_NaN();
  const auto output = limited(sound);
  EXPECT_EQ(output[500], 0);
  EXPECT_EQ(output[501], 0);
  EXPECT_EQ(output[502], 0.25F);
}

} // namespace
} // namespace tessarin::editing
