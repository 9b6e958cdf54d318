#include "narration/NarrationVoiceProcessor.hpp"

#include "model/MediaErrors.hpp"
#include "narration/NarrationNoiseProfile.hpp"
#include "narration/NarrationTesting.hpp"
#include "support/FailureOf.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

using namespace narrationTesting;
using testing::Each;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float greatest = std::numeric_limits<float>::max();
constexpr std::size_t block = 512;

NarrationPowers evenNoise(float power) {
  NarrationPowers noise;
  noise.fill(power);
  return noise;
}

NarrationPowers noiseOf(const Samples& samples) {
  NarrationNoiseProfile profile;
  for (std::size_t i = 0; i < samples.size(); i += block)
    profile.observe(std::span(samples).subspan(i, block));
  return profile.estimate();
}

Samples processed(const Samples& samples, const NarrationPowers& noise, float strength) {
  NarrationVoiceProcessor processor(noise, strength);
  Samples result;
  result.reserve(samples.size());
  for (std::size_t i = 0; i < samples.size(); i += block) {
    const NarrationBlock out = processor.process(std::span(samples).subspan(i, block));
    result.insert(result.end(), out.begin(), out.end());
  }
  return result;
}

// The last `count` samples.
std::span<const float> endOf(const Samples& samples, std::size_t count) {
  return std::span(samples).last(count);
}

void expectLimited(const Samples& samples) {
  for (std::size_t i = 0; i < samples.size(); ++i)
    ASSERT_TRUE(samples[i] >= -0.8913F && samples[i] <= 0.8913F) << i << ": " << samples[i];
}

TEST(NarrationVoiceProcessor, isTheSameByAnotherReckoning) {
  constexpr std::size_t count = 24 * block;
  const struct {
    const char* name;
    Samples samples;
  } cases[] = {
      {"speech", speech(count)},
      {"loud speech", sum(syllables(count, 0.8), noise(count, 0.02))},
      {"noise", noise(count, 0.05)},
      {"a square at full scale", made(count, [](std::size_t i) { return i / 100 % 2 == 0 ? 1.0 : -1.0; })},
      {"impulses", made(count, [](std::size_t i) { return i % 1777 == 0 ? 1.0 : 0.0; })},
  };
  for (const auto& it : cases)
    for (const float strength : {0.25F, 0.5F, 1.0F}) {
      const NarrationPowers noise = noiseOf(it.samples);
      const Samples result = processed(it.samples, noise, strength);
      const std::vector<double> expected = Reference::processed(it.samples, noise, strength);
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_NEAR(result[i], expected[i], 2e-5) << it.name << " at " << strength << ", sample " << i;
    }
}

TEST(NarrationVoiceProcessor, isTheSameByAnotherReckoningForNoiseThatIsNoMirrorImage) {
  constexpr std::size_t count = 12 * block;
  const Samples samples = speech(count);
  Noise source(11);
  NarrationPowers noise;
  for (float& power : noise)
    power = static_cast<float>(std::fabs(source.next()) * 0.01);
  const Samples result = processed(samples, noise, 1);
  const std::vector<double> expected = Reference::processed(samples, noise, 1);
  for (std::size_t i = 0; i < count; ++i)
    ASSERT_NEAR(result[i], expected[i], 2e-5) << i;
}

TEST(NarrationVoiceProcessor, isTheSameByAnotherReckoningOverASecondAndAHalf) {
  constexpr std::size_t count = 140 * block;
  const Samples samples = speech(count);
  const NarrationPowers noise = noiseOf(samples);
  const Samples result = processed(samples, noise, 1);
  const std::vector<double> expected = Reference::processed(samples, noise, 1);
  for (std::size_t i = 0; i < count; ++i)
    ASSERT_NEAR(result[i], expected[i], 5e-5) << i;
}

TEST(NarrationVoiceProcessor, isTransparentAtNoStrength) {
  constexpr std::size_t count = 40 * block;
  for (const Samples& samples :
       {speech(count), noise(count, 0.89), tone(count, 20, 0.5), Samples(count, 0.5F)})
    for (const NarrationPowers& noise : {evenNoise(0), evenNoise(1000)}) {
      const Samples result = processed(samples, noise, 0);
      for (std::size_t i = block; i < count; ++i)
        ASSERT_NEAR(result[i], samples[i - block], 1e-6) << i;
    }
}

TEST(NarrationVoiceProcessor, isTransparentUpToTheLimitAtNoStrength) {
  constexpr std::size_t count = 10 * block;
  const Samples samples = made(count, [](std::size_t i) {
    constexpr double levels[] = {1, -1, 0.9, -0.9, 0.88, -0.88};
    return levels[i / 50 % 6];
  });
  const Samples result = processed(samples, evenNoise(0), 0);
  for (std::size_t i = block; i < count; ++i)
    ASSERT_NEAR(result[i], std::clamp(samples[i - block], -0.8913F, 0.8913F), 1e-6) << i;
}

TEST(NarrationVoiceProcessor, lagsByABlock) {
  for (const std::size_t place : {0, 1, 255, 511, 512, 700, 1023, 1024}) {
    Samples samples(4 * block);
    samples[place] = 0.5F;
    const Samples result = processed(samples, evenNoise(0), 0);
    for (std::size_t i = 0; i < samples.size(); ++i)
      ASSERT_NEAR(result[i], i == place + 512 ? 0.5 : 0.0, 1e-6) << place << " at " << i;
  }
}

TEST(NarrationVoiceProcessor, keepsSilenceSilent) {
  const Samples silence(30 * block);
  for (const float strength : {0.0F, 0.5F, 1.0F})
    for (const float noise : {0.0F, 0.1F})
      EXPECT_THAT(processed(silence, evenNoise(noise), strength), Each(0.0F));
}

TEST(NarrationVoiceProcessor, takesAwayConstantsAndRumble) {
  constexpr std::size_t count = 94 * block;
  // One pole near 80 Hz: half the power is left at the corner; 20 Hz is down to a quarter, 1 kHz as it was.
  const struct {
    double frequency;
    double share;
  } cases[] = {{20, 0.242}, {80, 0.706}, {1000, 0.99}};
  for (const auto& it : cases) {
    // At -40 dB, which is no speech, so that the gain stays at 1.
    const Samples result = processed(tone(count, it.frequency, 0.01), evenNoise(0), 1);
    EXPECT_NEAR(rmsOf(endOf(result, 48000 / 4)) / (0.01 * std::numbers::sqrt2 / 2), it.share, 0.01)
        << it.frequency;
  }
  const Samples constant = processed(Samples(count, 0.01F), evenNoise(0), 1);
  for (const float sample : endOf(constant, block))
    EXPECT_NEAR(sample, 0, 1e-6);
}

TEST(NarrationVoiceProcessor, bringsSpeechToItsLevel) {
  constexpr std::size_t count = 200 * block;
  const struct {
    double rms;
    float strength;
    double expected;
  } cases[] = {
      {0.12, 1, 0.12}, {0.06, 1, 0.12},    {0.24, 1, 0.12},    {0.02, 1, 0.06}, {0.5, 1, 0.125},
      {0.01, 1, 0.01}, {0.06, 0.5F, 0.09}, {0.24, 0.5F, 0.18}, {0.24, 0, 0.24},
  };
  for (const auto& it : cases) {
    // What the filter leaves of 3 kHz is 0.4 % less.
    const Samples result =
        processed(tone(count, 3000, it.rms * std::numbers::sqrt2), evenNoise(0), it.strength);
    EXPECT_NEAR(rmsOf(endOf(result, 10 * block)) / it.expected, 1, 0.01) << it.rms << " at " << it.strength;
  }
}

TEST(NarrationVoiceProcessor, turnsDownFastAndUpSlowly) {
  // The envelope of a tone that turns loud, or faint: what is left of the way after a number of samples.
  const auto levelAfter = [](double before, double after, std::size_t samples) {
    constexpr std::size_t settled = 400 * block;
    const Samples sound = made(settled + 64 * block, [&](std::size_t i) {
      return (i < settled ? before : after) * std::numbers::sqrt2 * oscillation(3000, i);
    });
    const Samples result = processed(sound, evenNoise(0), 1);
    // 3 kHz repeats every 16 samples.
    return rmsOf(std::span(result).subspan(settled + block + samples - 8, 16)) / after;
  };
  // From a gain of 2 to one of 0.5, one time constant and three after the change was heard.
  EXPECT_NEAR(levelAfter(0.06, 0.24, 476), 0.5 + 1.5 / std::numbers::e, 0.05);
  EXPECT_NEAR(levelAfter(0.06, 0.24, 3 * 476), 0.5 + 1.5 * std::exp(-3), 0.05);
  // And back.
  EXPECT_NEAR(levelAfter(0.24, 0.06, 7143), 2 - 1.5 / std::numbers::e, 0.05);
  EXPECT_NEAR(levelAfter(0.24, 0.06, 3 * 7143), 2 - 1.5 * std::exp(-3), 0.05);
}

TEST(NarrationVoiceProcessor, takesTheNoiseOutOfThePauses) {
  constexpr std::size_t count = 376 * block;
  const Samples samples = sum(syllables(count, 0.15), noise(count, 0.004));
  const Samples result = processed(samples, noiseOf(samples), 1);
  // The pauses are the second half of each half of a second, and the gain is of that loudness.
  double loudBefore = 0;
  double loudAfter = 0;
  double pauseBefore = 0;
  double pauseAfter = 0;
  for (std::size_t start = 48000; start + 24000 + block < count; start += 24000) {
    loudBefore += rmsOf(std::span(samples).subspan(start + 2000, 8000));
    loudAfter += rmsOf(std::span(result).subspan(start + block + 2000, 8000));
    pauseBefore += rmsOf(std::span(samples).subspan(start + 15000, 8000));
    pauseAfter += rmsOf(std::span(result).subspan(start + block + 15000, 8000));
  }
  const double decibels = 20 * std::log10(loudAfter / pauseAfter * pauseBefore / loudBefore);
  EXPECT_GT(decibels, 10);
}

TEST(NarrationVoiceProcessor, staysWithinTheLimitWhateverComes) {
  constexpr float values[] = {nan,   infinity, -infinity, greatest, -greatest, 1e-40F, -1e-40F,
                              1e20F, -1e34F,   1,         -1,       0.5F,      1e-8F,  0};
  constexpr std::size_t count = 100 * block;
  for (const float strength : {0.0F, 0.25F, 0.5F, 0.75F, 1.0F})
    for (const float noise : {0.0F, 1.0F, greatest}) {
      Noise source(5);
      const auto next = [&source](std::size_t bound) {
        return static_cast<std::size_t>((source.next() + 1) / 2 * static_cast<double>(bound)) % bound;
      };
      Samples samples = speech(count);
      // One value for a while, and now and then another.
      for (std::size_t change = 0; change < 60; ++change) {
        const std::size_t start = next(count);
        const float value = values[next(std::size(values))];
        const std::size_t end = std::min(count, start + (change % 2 == 0 ? 1 : next(900)));
        std::fill(samples.begin() + static_cast<std::ptrdiff_t>(start),
                  samples.begin() + static_cast<std::ptrdiff_t>(end), value);
      }
      expectLimited(processed(samples, evenNoise(noise), strength));
      expectLimited(processed(narrationTesting::noise(count, 3e38), evenNoise(noise), strength));
      expectLimited(processed(narrationTesting::noise(count, 1e-40), evenNoise(noise), strength));
    }
}

TEST(NarrationVoiceProcessor, isSilentForThreeBlocksAroundASampleThatIsNotFinite) {
  constexpr std::size_t count = 40 * block;
  const Samples clean = speech(count);
  for (const float value : {nan, infinity, -infinity}) {
    Samples samples = clean;
    samples[10 * block + 100] = value;
    const Samples result = processed(samples, evenNoise(0), 0);
    for (std::size_t i = block; i < count; ++i) {
      const bool isSilent = i >= 10 * block && i < 13 * block;
      ASSERT_NEAR(result[i], isSilent ? 0 : clean[i - block], 1e-6) << i;
    }
  }
}

TEST(NarrationVoiceProcessor, goesOnAsIfNothingHadBeen) {
  constexpr std::size_t count = 280 * block;
  const Samples clean = speech(count);
  const NarrationPowers noise = noiseOf(clean);
  for (const float value : {nan, infinity, greatest, -1e34F}) {
    Samples samples = clean;
    for (std::size_t i = 20 * block; i < 22 * block; i += 3)
      samples[i] = value;
    for (const float strength : {0.5F, 1.0F}) {
      const Samples expected = processed(clean, noise, strength);
      const Samples result = processed(samples, noise, strength);
      for (std::size_t i = count - 48 * block; i < count; ++i)
        ASSERT_NEAR(result[i], expected[i], 0.01) << value << " at " << strength << ", sample " << i;
    }
  }
}

TEST(NarrationVoiceProcessor, givesTheSameEveryTime) {
  const Samples samples = speech(50 * block);
  const NarrationPowers noise = noiseOf(samples);
  EXPECT_EQ(processed(samples, noise, 0.75F), processed(samples, noise, 0.75F));
}

TEST(NarrationVoiceProcessor, refusesWhatIsNoNoise) {
  const auto failureOfNoise = [](const Samples& noise) {
    return failureOf<VideoEditExportError>([&] { (void)NarrationVoiceProcessor(noise, 0.5F); });
  };
  const auto with = [](float value) {
    Samples noise(1024, 1.0F);
    noise[1023] = value;
    return noise;
  };
  for (const std::size_t size : {0, 512, 1023, 1025, 2048})
    EXPECT_EQ(failureOfNoise(Samples(size)), VideoEditExportError::invalidProject) << size;
  for (const float value : {nan, infinity, -infinity, -1e-40F, -1.0F})
    EXPECT_EQ(failureOfNoise(with(value)), VideoEditExportError::invalidProject) << value;
  for (const float value : {0.0F, -0.0F, 1e-40F, greatest})
    EXPECT_EQ(failureOfNoise(with(value)), std::nullopt) << value;
}

TEST(NarrationVoiceProcessor, refusesAnotherStrength) {
  const auto failureOfStrength = [](float strength) {
    return failureOf<VideoEditExportError>([&] { (void)NarrationVoiceProcessor(evenNoise(0), strength); });
  };
  for (const float strength : {-0.0001F, 1.0001F, nan, infinity, -infinity})
    EXPECT_EQ(failureOfStrength(strength), VideoEditExportError::invalidProject) << strength;
  for (const float strength : {0.0F, 0.0001F, 0.9999F, 1.0F})
    EXPECT_EQ(failureOfStrength(strength), std::nullopt) << strength;
}

TEST(NarrationVoiceProcessorDeathTest, endsTheProcessForAnotherNumberOfSamples) {
  NarrationVoiceProcessor processor(evenNoise(0), 1);
  for (const std::size_t count : {0, 511, 513, 1024})
    EXPECT_DEATH((void)processor.process(Samples(count)), "") << count;
}

} // namespace
} // namespace tessarin
