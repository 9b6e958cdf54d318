#include "narration/AudioWaveformService.hpp"

#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"
#include "support/ScriptedMovieEditing.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tessarin {
namespace {

using testing::AllOf;
using testing::Each;
using testing::SizeIs;

constexpr auto path = "/recording.mp4";
constexpr std::size_t sliceCount = 64; // of a recording of 64 seconds: a second each

using Sound = ScriptedMediaAssets::Sound;

// One stretch of a number of samples at 48 kHz, of which one has the value.
Sound sound(MediaTime start, std::size_t sampleCount, float value) {
  Sound result{std::vector<float>(sampleCount, 0.0F), start};
  if (sampleCount > 0)
    result.samples[sampleCount / 2] = value;
  return result;
}

ScriptedMediaAssets::File file(std::vector<std::vector<Sound>> tracks) {
  ScriptedMediaAssets::File result;
  result.asset.duration = MediaTime(64, 1);
  result.asset.audioTracks.resize(tracks.size());
  result.sounds = std::move(tracks);
  return result;
}

std::vector<double> amplitudesOf(ScriptedMediaAssets::File it) {
  ScriptedMediaAssets assets;
  assets.files[path] = std::move(it);
  const auto payload = AudioWaveformService(assets, makeThreadQueue).generate({path, sliceCount});
  EXPECT_EQ(payload.sourcePath, path);
  EXPECT_EQ(payload.sampleCount, static_cast<std::int64_t>(sliceCount));
  return payload.amplitudes;
}

std::optional<AudioWaveformServiceError> failureOfFile(ScriptedMediaAssets::File it) {
  return failureOf<AudioWaveformServiceError>([&] { (void)amplitudesOf(std::move(it)); });
}

// The slices that are not 0, by their number.
std::map<std::size_t, double> heard(const std::vector<double>& amplitudes) {
  std::map<std::size_t, double> result;
  for (std::size_t index = 0; index < amplitudes.size(); ++index)
    if (amplitudes[index] != 0)
      result[index] = amplitudes[index];
  return result;
}

using Heard = std::map<std::size_t, double>;

TEST(AudioWaveformService, isAllZeroWithoutATrackAndWithASilentOne) {
  EXPECT_THAT(amplitudesOf(file({})), AllOf(SizeIs(sliceCount), Each(0.0)));
  EXPECT_THAT(amplitudesOf(file({{sound(MediaTime(1, 1), 1024, 0)}})), AllOf(SizeIs(sliceCount), Each(0.0)));
}

TEST(AudioWaveformService, givesEachSliceThePeakOfTheStretchesThatTouchIt) {
  const struct {
    MediaTime start;
    std::size_t sampleCount;
    Heard expected;
  } cases[] = {
      {MediaTime(5, 1), 1024, {{5, 0.5}}},
      {MediaTime(5, 1), 47999, {{5, 0.5}}},
      // A stretch that ends on a border touches what lies behind it.
      {MediaTime(5, 1), 48000, {{5, 0.5}, {6, 0.5}}},
      {MediaTime(59, 10), 4800 * 12, {{5, 0.5}, {6, 0.5}, {7, 0.5}}},
      // What begins before the recording counts from its beginning, with all its length.
      {MediaTime(-1, 2), 48000, {{0, 0.5}, {1, 0.5}}},
      // What ends behind the recording counts up to its end.
      {MediaTime(63, 1), 96000, {{63, 0.5}}},
      {MediaTime(64, 1), 1024, {}},
      {MediaTime(1, 1), 0, {}},
  };
  for (const auto& it : cases)
    EXPECT_EQ(heard(amplitudesOf(file({{sound(it.start, it.sampleCount, 0.5F)}}))), it.expected)
        << it.start.seconds() << " s, " << it.sampleCount;
}

TEST(AudioWaveformService, takesMagnitudesUpToOneAndOnlyNumbers) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinite = std::numeric_limits<float>::infinity();
  const struct {
    std::vector<float> samples;
    Heard expected;
  } cases[] = {
      {{0.25F, -0.75F}, {{0, 0.75}}},
      {{1.5F}, {{0, 1.0}}},
      {{-7.0F}, {{0, 1.0}}},
      {{nan, 0.25F, nan}, {{0, 0.25}}},
      {{infinite, 0.5F, -infinite}, {{0, 0.5}}},
      {{nan, infinite}, {}},
  };
  for (const auto& it : cases)
    EXPECT_EQ(heard(amplitudesOf(file({{Sound{it.samples, MediaTime::zero()}}}))), it.expected);
}

TEST(AudioWaveformService, givesTheLouderOfTwoTracks) {
  const auto first = std::vector{sound(MediaTime(1, 1), 1024, 0.25F), sound(MediaTime(2, 1), 1024, 0.75F)};
  const auto second = std::vector{sound(MediaTime(1, 1), 1024, -0.5F), sound(MediaTime(3, 1), 1024, 0.125F)};
  EXPECT_EQ(heard(amplitudesOf(file({first, second}))), (Heard{{1, 0.5}, {2, 0.75}, {3, 0.125}}));
}

TEST(AudioWaveformService, refusesAFileThatCannotBeOpened) {
  ScriptedMediaAssets assets;
  EXPECT_EQ(failureOf<AudioWaveformServiceError>([&] {
              (void)AudioWaveformService(assets, makeThreadQueue).generate({path, sliceCount});
            }),
            AudioWaveformServiceError::invalidMedia);
}

TEST(AudioWaveformService, refusesAFileWithoutALength) {
  for (const MediaTime duration : {MediaTime(), MediaTime::zero(), MediaTime(-1, 1)}) {
    auto it = file({});
    it.asset.duration = duration;
    EXPECT_EQ(failureOfFile(std::move(it)), AudioWaveformServiceError::invalidDuration);
  }
}

TEST(AudioWaveformService, failsWhenATrackCannotBeReadToItsEnd) {
  auto it = file({{sound(MediaTime(1, 1), 1024, 0.25F)}, {}});
  it.soundBreaks = true;
  EXPECT_EQ(failureOfFile(std::move(it)), AudioWaveformServiceError::readerFailed);
}

TEST(AudioWaveformService, saysNoMoreThanThatItCouldNotBeRead) {
  using enum AudioWaveformServiceError;
  for (const auto error : {invalidMedia, invalidDuration, readerFailed})
    EXPECT_EQ(messageOf(error), "The recording audio waveform could not be read.");
}

} // namespace
} // namespace tessarin
