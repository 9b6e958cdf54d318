#include "narration/NarrationSpectrum.hpp"

#include "narration/NarrationTesting.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace narrationTesting;

TEST(NarrationSpectrum, hasTheRootOfHannsWindow) {
  const NarrationSpectrum spectrum;
  ASSERT_EQ(spectrum.window().size(), 1024U);
  EXPECT_EQ(spectrum.window()[0], 0.0F);
  EXPECT_NEAR(spectrum.window()[256], 0.70710678, 1e-6);
  EXPECT_NEAR(spectrum.window()[512], 1, 1e-6);
  for (std::size_t i = 0; i < 1024; ++i)
    // The root of the difference of two numbers near to each other, where it is near to 0.
    EXPECT_NEAR(spectrum.window()[i], Reference::window(i), i < 16 || i > 1008 ? 3e-5 : 2e-6) << i;
}

TEST(NarrationSpectrum, weighsWhatOverlapsWithOneInAll) {
  const NarrationSpectrum spectrum;
  for (std::size_t i = 0; i < 512; ++i) {
    const float first = spectrum.window()[i];
    const float second = spectrum.window()[i + 512];
    EXPECT_NEAR(first * first + second * second, 1, 1e-6) << i;
  }
}

TEST(NarrationSpectrum, isTheTransformOfTheWeighedSamples) {
  const NarrationSpectrum spectrum;
  for (const Samples& samples : {speech(1024), noise(1024, 1), tone(1024, 1000, 0.5)}) {
    const NarrationBins bins = spectrum.forward(samples);
    const auto expected = Reference::analysed({samples.begin(), samples.end()});
    for (std::size_t k = 0; k < 1024; ++k) {
      EXPECT_NEAR(bins.real[k], expected[k].real(), 1e-4) << k;
      EXPECT_NEAR(bins.imaginary[k], expected[k].imag(), 1e-4) << k;
    }
  }
}

TEST(NarrationSpectrum, givesTheSamplesBackWeighedTwice) {
  const NarrationSpectrum spectrum;
  const Samples samples = noise(1024, 1);
  const NarrationBlockPair back = spectrum.inverse(spectrum.forward(samples));
  for (std::size_t i = 0; i < 1024; ++i)
    EXPECT_NEAR(back[i], samples[i] * spectrum.window()[i] * spectrum.window()[i], 1e-6) << i;
}

TEST(NarrationSpectrum, yieldsTheRealPartOfBinsThatAreNoMirrorImage) {
  const NarrationSpectrum spectrum;
  NarrationBins bins{};
  bins.real[3] = 1024; // a wave that turns one way only: its real part is a cosine
  const NarrationBlockPair wave = spectrum.inverse(bins);
  for (std::size_t i = 0; i < 1024; ++i)
    EXPECT_NEAR(wave[i],
                std::cos(2 * std::numbers::pi * 3 * static_cast<double>(i) / 1024) * spectrum.window()[i],
                1e-5)
        << i;
}

TEST(NarrationSpectrumDeathTest, endsTheProcessForAnotherNumberOfSamples) {
  const NarrationSpectrum spectrum;
  for (const std::size_t count : {0, 512, 1023, 1025})
    EXPECT_DEATH((void)spectrum.forward(Samples(count)), "") << count;
}

TEST(NarrationRms, isTheRootOfTheMeanOfTheSquares) {
  for (const float sample : {0.25F, 0.012F, 0.015F, 0.12F, 1e-5F, 1e-30F, 1e30F})
    EXPECT_EQ(narrationRms(Samples(512, -sample)), sample);
  EXPECT_EQ(narrationRms(Samples(512)), 0.0F);
  EXPECT_FLOAT_EQ(narrationRms(Samples{3, 4}), std::sqrt(12.5F));
  for (const std::size_t count : {1, 15, 16, 17, 512, 1000, 1024})
    EXPECT_NEAR(narrationRms(noise(count, 0.7)), rmsOf(noise(count, 0.7)), 1e-6) << count;
}

TEST(NarrationBlocks, areJoinedWithTheOneBefore) {
  NarrationBlock previous{};
  const Samples first(512, 1.0F);
  const Samples second(512, 2.0F);
  const NarrationBlockPair beginning = joinedNarrationBlocks(previous, first);
  EXPECT_EQ(beginning[511], 0.0F);
  EXPECT_EQ(beginning[512], 1.0F);
  const NarrationBlockPair next = joinedNarrationBlocks(previous, second);
  EXPECT_EQ(next[0], 1.0F);
  EXPECT_EQ(next[511], 1.0F);
  EXPECT_EQ(next[512], 2.0F);
  EXPECT_EQ(previous[0], 2.0F);
}

} // namespace
} // namespace tessarin
