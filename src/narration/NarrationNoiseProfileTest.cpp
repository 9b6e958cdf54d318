#include "narration/NarrationNoiseProfile.hpp"

#include "narration/NarrationTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace narrationTesting;
using testing::Each;

NarrationPowers estimateOf(const Samples& samples) {
  NarrationNoiseProfile profile;
  for (std::size_t i = 0; i < samples.size(); i += 512)
    profile.observe(std::span(samples).subspan(i, 512));
  return profile.estimate();
}

std::vector<double> powersOfBlock(const Samples& samples, std::size_t block) {
  std::vector<double> powers;
  powers.reserve(1024);
  for (const std::complex<double>& bin : Reference::analysed(Reference::around(samples, block)))
    powers.push_back(std::norm(bin));
  return powers;
}

std::vector<double> meanOfBlocks(const Samples& samples, std::size_t first, std::size_t end) {
  std::vector<double> mean(1024);
  for (std::size_t block = first; block < end; ++block) {
    const std::vector<double> powers = powersOfBlock(samples, block);
    for (std::size_t k = 0; k < mean.size(); ++k)
      mean[k] += powers[k] / static_cast<double>(end - first);
  }
  return mean;
}

// A bin's share of the error is that of the greatest: what all samples give to it is rounded, whatever is
// left.
void expectPowers(const NarrationPowers& powers, const std::vector<double>& expected) {
  const double tolerance = 1e-9 * *std::max_element(expected.begin(), expected.end());
  for (std::size_t k = 0; k < 1024; ++k)
    EXPECT_NEAR(powers[k], expected[k], 1e-4 * expected[k] + tolerance) << k;
}

TEST(NarrationNoiseProfile, isAllZerosBeforeTheFirstBlock) {
  EXPECT_THAT(NarrationNoiseProfile().estimate(), Each(0.0F));
}

TEST(NarrationNoiseProfile, isAllZerosForSilence) {
  EXPECT_THAT(estimateOf(Samples(512)), Each(0.0F));
  EXPECT_THAT(estimateOf(Samples(static_cast<std::size_t>(512) * 200)), Each(0.0F));
}

TEST(NarrationNoiseProfile, isTheSameByAnotherReckoning) {
  constexpr std::size_t count = 45 * 512;
  const struct {
    const char* name;
    Samples samples;
  } cases[] = {
      {"speech", speech(count)},
      {"noise", noise(count, 0.01)},
      {"hum", sum(tone(count, 50, 0.1), noise(count, 0.001))},
      {"a square at full scale", made(count, [](std::size_t i) { return i / 100 % 2 == 0 ? 1.0 : -1.0; })},
      {"impulses", made(count, [](std::size_t i) { return i % 1777 == 0 ? 1.0 : 0.0; })},
  };
  for (const auto& it : cases) {
    SCOPED_TRACE(it.name);
    expectPowers(estimateOf(it.samples), Reference::noise(it.samples));
  }
}

TEST(NarrationNoiseProfile, takesTheQuietestTenthOfTheBlocksButOneAtLeast) {
  // Each block is louder than the one before by more than a bucket.
  const auto rising = [](std::size_t blocks) {
    Noise source(3);
    return made(blocks * 512, [&source](std::size_t i) {
      return 1e-4 * std::pow(1.3, static_cast<double>(i / 512)) * source.next();
    });
  };
  const struct {
    std::size_t blocks;
    std::size_t quietest;
  } cases[] = {{1, 1}, {9, 1}, {10, 1}, {11, 2}, {20, 2}, {21, 3}, {25, 3}, {30, 3}, {31, 4}};
  for (const auto& it : cases) {
    SCOPED_TRACE(it.blocks);
    const Samples samples = rising(it.blocks);
    expectPowers(estimateOf(samples), meanOfBlocks(samples, 0, it.quietest));
  }
}

TEST(NarrationNoiseProfile, countsAPartOfABucketInProportion) {
  // Two of fifteen blocks are wanted: the first, which begins with silence, and one of all those behind it.
  const Samples samples = noise(static_cast<std::size_t>(15) * 512, 0.0112);
  const std::vector<double> first = powersOfBlock(samples, 0);
  std::vector<double> expected = meanOfBlocks(samples, 1, 15);
  for (std::size_t k = 0; k < 1024; ++k)
    expected[k] = (first[k] + expected[k]) / 2;
  expectPowers(estimateOf(samples), expected);
}

TEST(NarrationNoiseProfile, learnsFromThePausesOfSpeechAndNotFromTheSpeech) {
  constexpr std::size_t count = 94 * 512;
  const NarrationPowers inSpeech = estimateOf(sum(syllables(count, 0.15), noise(count, 0.004)));
  const NarrationPowers alone = estimateOf(noise(count, 0.004));
  double ratio = 0;
  for (std::size_t k = 0; k < 1024; ++k)
    ratio += inSpeech[k] / alone[k] / 1024;
  EXPECT_GT(ratio, 0.5);
  EXPECT_LT(ratio, 2);
}

TEST(NarrationNoiseProfile, mayBeAskedMoreThanOnce) {
  const Samples samples = noise(static_cast<std::size_t>(40) * 512, 0.01);
  NarrationNoiseProfile profile;
  for (std::size_t i = 0; i < samples.size(); i += 512) {
    profile.observe(std::span(samples).subspan(i, 512));
    (void)profile.estimate();
  }
  EXPECT_EQ(profile.estimate(), estimateOf(samples));
}

TEST(NarrationNoiseProfileDeathTest, endsTheProcessForAnotherNumberOfSamples) {
  NarrationNoiseProfile profile;
  for (const std::size_t count : {0, 511, 513, 1024})
    EXPECT_DEATH(profile.observe(Samples(count)), "") << count;
}

} // namespace
} // namespace tessarin
