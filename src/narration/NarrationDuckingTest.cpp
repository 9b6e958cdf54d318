#include "narration/NarrationDucking.hpp"

#include "narration/NarrationTesting.hpp"
#include "project/EditProjectTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

using namespace narrationTesting;
using Role = VideoEditAudioRole;
using testing::Each;

constexpr std::size_t block = 512;

VideoEditProjectDTO projectOf(std::optional<double> strength) {
  VideoEditProjectDTO project = editTesting::plainProject();
  if (strength)
    project.narrationAudio = NarrationAudioSettingsDTO{*strength};
  return project;
}

VideoEditClipDTO muting(std::int64_t startMs, std::int64_t endMs,
                        std::vector<Role> roles = {Role::microphone}) {
  VideoEditClipDTO clip = editTesting::clip(std::to_string(startMs), startMs, endMs);
  clip.mutedRoles = std::move(roles);
  return clip;
}

// The gain of each frame: what becomes of ones, of which there are as many as of the voice. Both channels are
// alike.
Samples gains(const VideoEditProjectDTO& project, const Samples& voice) {
  NarrationDucking ducking(project);
  Samples result;
  result.reserve(voice.size());
  for (std::size_t start = 0; start < voice.size(); start += block) {
    const std::size_t count = std::min(block, voice.size() - start);
    Samples heard(block);
    std::copy_n(voice.begin() + static_cast<std::ptrdiff_t>(start), count, heard.begin());
    Samples frames(2 * count, 1.0F);
    ducking.duck(frames, heard);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(frames[2 * i], frames[2 * i + 1]);
      result.push_back(frames[2 * i]);
    }
  }
  return result;
}

double decibels(double gain) {
  return 20 * std::log10(gain);
}

TEST(NarrationDucking, goesDownByTwelveDecibelsAtFullStrength) {
  const Samples voice(200 * block, 0.1F);
  for (const double strength : {0.25, 0.5, 0.75, 1.0})
    EXPECT_NEAR(decibels(gains(projectOf(strength), voice).back()), -12 * strength, 0.001) << strength;
}

TEST(NarrationDucking, changesNothingWithoutStrength) {
  const Samples voice = speech(100 * block);
  EXPECT_THAT(gains(projectOf(std::nullopt), voice), Each(1.0F));
  EXPECT_THAT(gains(projectOf(0), voice), Each(1.0F));
}

TEST(NarrationDucking, isAboutSpeechAlone) {
  // A voice that is exactly as loud as silence may be, and one just above.
  EXPECT_THAT(gains(projectOf(1), Samples(10 * block, 0.015F)), Each(1.0F));
  EXPECT_LT(gains(projectOf(1), Samples(10 * block, 0.0151F)).back(), 0.3F);
  EXPECT_THAT(gains(projectOf(1), Samples(10 * block)), Each(1.0F));
  EXPECT_THAT(gains(projectOf(1), Samples(10 * block, std::numeric_limits<float>::quiet_NaN())), Each(1.0F));
}

TEST(NarrationDucking, takesAFixedShareOfTheWayWithEachFrame) {
  // Ten blocks of speech, then silence; both by their own rates from the first frame of a block on.
  Samples voice(4000 * block);
  std::fill_n(voice.begin(), 10 * block, 0.1F);
  const Samples result = gains(projectOf(1), voice);
  const double target = std::pow(10, -0.6);
  double gain = 1;
  for (std::size_t i = 0; i < result.size(); ++i) {
    gain += i < 10 * block ? (target - gain) * 0.0014 : (1 - gain) * 0.00006;
    // In single precision the last half of a thousandth on the way up is too little to be added.
    ASSERT_NEAR(result[i], gain, 6e-4) << i;
  }
  // 15 ms down and 350 ms up are one time constant.
  EXPECT_NEAR(result[714], target + (1 - target) / std::numbers::e, 0.001);
  const double depth = 1 - result[10 * block - 1];
  EXPECT_NEAR(1 - result[10 * block + 16667], depth / std::numbers::e, 0.001);
}

TEST(NarrationDucking, multipliesEachChannel) {
  NarrationDucking ducking(projectOf(1));
  const Samples voice(block, 0.1F);
  Samples frames(2 * block);
  for (std::size_t i = 0; i < frames.size(); ++i)
    frames[i] = i % 2 == 0 ? 0.5F : -0.25F;
  ducking.duck(frames, voice);
  const Samples expected = gains(projectOf(1), voice);
  for (std::size_t i = 0; i < block; ++i) {
    EXPECT_FLOAT_EQ(frames[2 * i], 0.5F * expected[i]);
    EXPECT_FLOAT_EQ(frames[2 * i + 1], -0.25F * expected[i]);
  }
}

TEST(NarrationDucking, listensToTheWholeBlockWhenTheSoundEndsWithinIt) {
  // 16 samples of 0.1 among 512 are 0.0177 on the whole.
  Samples voice(16, 0.1F);
  EXPECT_LT(gains(projectOf(1), voice).back(), 1.0F);
  // 11 of them are not enough: 0.0147.
  voice.resize(11);
  EXPECT_THAT(gains(projectOf(1), voice), Each(1.0F));
  EXPECT_EQ(gains(projectOf(1), Samples(1000, 0.1F)).size(), 1000U);
}

// The block in which the sound first goes down, of as many as fit into two seconds.
std::optional<std::size_t> firstDucked(const VideoEditProjectDTO& project, const Samples& voice) {
  const Samples result = gains(project, voice);
  for (std::size_t i = 0; i < result.size(); ++i)
    if (result[i] < 1)
      return i / block;
  return std::nullopt;
}

TEST(NarrationDucking, doesNotListenWhereAClipMutesTheMicrophone) {
  const Samples voice(static_cast<std::size_t>(187) * block, 0.1F); // 1994 ms
  const struct {
    const char* name;
    std::vector<VideoEditClipDTO> clips;
    std::optional<std::size_t> block;
  } cases[] = {
      {"all of it", {muting(0, 2000)}, std::nullopt},
      {"more than there is", {muting(0, 5000)}, std::nullopt},
      {"two in a row", {muting(0, 700), muting(700, 2000)}, std::nullopt},
      // 1 s ends with the sample 48000, in block 93; of that block 128 samples are heard.
      {"the first second", {muting(0, 1000)}, 93},
      {"with the computer's", {muting(0, 1000, {Role::system, Role::microphone})}, 93},
      {"the computer's alone", {muting(0, 2000, {Role::system})}, 0},
      {"nothing", {muting(0, 2000, {})}, 0},
      {"a later part", {muting(500, 2000)}, 0},
      {"behind a clip that is heard", {muting(0, 300, {}), muting(300, 2000)}, 0},
      {"behind what was cut out", {muting(0, 300), muting(400, 2000)}, 28},
  };
  for (const auto& it : cases) {
    VideoEditProjectDTO project = projectOf(1);
    project.clips = it.clips;
    EXPECT_EQ(firstDucked(project, voice), it.block) << it.name;
  }
}

TEST(NarrationDucking, mutesFromTheFirstSampleOfAMillisecondToTheLastBeforeItsEnd) {
  // One loud sample, which is enough for its block; the clip covers 100 ms to 200 ms, the samples 4800 to
  // 9599.
  const struct {
    std::size_t place;
    bool isHeard;
  } cases[] = {{4799, true}, {4800, false}, {4847, false}, {9599, false}, {9600, true}};
  for (const auto& it : cases) {
    VideoEditProjectDTO project = projectOf(1);
    project.clips = {muting(100, 200)};
    Samples voice(20 * block);
    voice[it.place] = 0.8F;
    const auto expected = it.isHeard ? std::optional(it.place / block) : std::nullopt;
    EXPECT_EQ(firstDucked(project, voice), expected) << it.place;
  }
}

TEST(NarrationDuckingDeathTest, endsTheProcessForAnotherNumberOfSamples) {
  NarrationDucking ducking(projectOf(1));
  Samples frames(2 * block);
  for (const std::size_t count : {0, 511, 513})
    EXPECT_DEATH(ducking.duck(frames, Samples(count)), "") << count;
  for (const std::size_t count : {1, 1023, 1025, 1026}) {
    Samples others(count);
    EXPECT_DEATH(ducking.duck(others, Samples(block)), "") << count;
  }
}

} // namespace
} // namespace tessarin
