#include "MovieTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace tessarin {
namespace {

constexpr const char* h264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -b:a 256k";

class MovieExportSound : public ::testing::Test {
 protected:
  MovieExport exportOf(const std::string& source, const std::vector<Cut>& cuts) const {
    MovieExport movie;
    movie.composition = compositionOf(source, cuts);
    movie.frameDuration = MediaTime(1, 30);
    movie.outputPath = rig.path("out.mp4");
    return movie;
  }
  // By the times of the packets.
  std::vector<float> exported(const MovieExport& movie) {
    EXPECT_EQ(rig.run(movie), std::nullopt);
    return decoded(movie.outputPath, 0, Decoding::byTime);
  }
  // Exactly, by the file's own account; other programs play the last packet to its end.
  std::int64_t length(const MovieExport& movie) {
    std::int64_t frames = 0;
    rig.assets.decodeSound(movie.outputPath, 0, [&](const DecodedSound& stretch) {
      EXPECT_EQ(stretch.start, MediaTime(frames, 48000));
      frames += std::ssize(stretch.samples);
    });
    return frames;
  }

  MovieRig rig;
};

TEST_F(MovieExportSound, KeepsThePitchAtEveryRate) {
  const auto source = rig.paint("s.mp4", 240, 30, h264, toneInput(8));
  for (const double rate : {0.5, 0.75, 1.0, 1.25, 1.5, 2.0, 2.5, 3.0}) {
    MovieExport movie = exportOf(source, {{1000, 7000, rate}});
    movie.outputPath = rig.path(std::to_string(rate) + ".mp4");
    movie.composition.audioLanes = {{0, {0.8F}}};
    const auto sound = exported(movie);
    const auto frames = movie.composition.segments[0].output.duration.convertedTo(48000).value();
    EXPECT_EQ(length(movie), frames) << rate;
    EXPECT_NEAR(toneIn(sound, 4800, frames - 4800), 1000, 3) << rate;
    EXPECT_NEAR(loudest(sound, 4800, frames - 4800), 0.4, 0.05) << rate;
    // To its very end, and from its very beginning on.
    EXPECT_GT(loudest(sound, 0, 480), 0.3) << rate;
    EXPECT_GT(loudest(sound, frames - 960, frames - 480), 0.25) << rate;
  }
}

// Clicks at the beginnings of segments, at other speeds before and after.
TEST_F(MovieExportSound, PutsEverySegmentInItsPlaceToTheMillisecond) {
  MediaModuleRig recorder;
  recordSegment(recorder, "r.mp4", 60, {clicks({48048, 144048, 192048, 240048})});
  const std::string source = recorder.path("r.mp4");
  MovieExport movie =
      exportOf(source, {{3000, 4000, 1}, {1000, 2500, 1.5}, {4000, 4700, 0.7}, {5000, 5500, 1}});
  movie.composition.audioLanes = {{0, {1, 1, 1, 1}}};
  const auto sound = exported(movie);
  for (const std::int64_t start : {0, 1000, 2000, 3000}) {
    std::int64_t at = 0;
    float most = 0;
    for (std::int64_t i = start * 48; i < start * 48 + 480; ++i) {
      const float value = std::abs(sound.at(static_cast<std::size_t>(i)));
      at = value > most ? i : at;
      most = std::max(most, value);
    }
    EXPECT_GT(most, 0.2F) << start;
    EXPECT_NEAR(static_cast<double>(at), static_cast<double>(start * 48 + 48), 48) << start;
  }
}

TEST_F(MovieExportSound, MixesLanesAtTheVolumeOfEachSegment) {
  const auto source = rig.paint("s.mp4", 90, 30, std::string("-map 0 -map 1 -map 2 ") + h264,
                                toneInput(3, 1000) + " " + toneInput(3, 3000));
  MovieExport movie = exportOf(source, {{0, 1000, 1}, {1000, 2000, 1}, {2000, 3000, 1}});
  movie.composition.audioLanes = {{0, {0.5F, 0, 0}}, {1, {0, 1.5F, 0}}};
  const auto sound = exported(movie);
  EXPECT_NEAR(toneIn(sound, 2400, 45600), 1000, 1);
  EXPECT_NEAR(loudest(sound, 2400, 45600), 0.25, 0.02);
  EXPECT_NEAR(toneIn(sound, 50400, 93600), 3000, 3);
  EXPECT_NEAR(loudest(sound, 50400, 93600), 0.75, 0.04);
  EXPECT_LT(loudest(sound, 100800, 140000), 0.001F);
}

TEST_F(MovieExportSound, StaysWithinFullScaleWithoutCutting) {
  const auto source = rig.paint("s.mp4", 60, 30, h264, toneInput(2));
  MovieExport movie = exportOf(source, {{0, 2000, 1}});
  movie.composition.audioLanes = {{0, {2}}, {0, {2}}};
  const auto sound = exported(movie);
  EXPECT_LT(loudest(sound, 4800, 91200), 1.03F);
  EXPECT_GT(loudest(sound, 4800, 91200), 0.9F);
  EXPECT_NEAR(toneIn(sound, 4800, 91200), 1000, 0.5);
  // A tone that was cut would have a third harmonic: a flat top, with the mean of its magnitude near one.
  double sum = 0;
  for (std::size_t i = 4800; i < 91200; ++i)
    sum += std::abs(sound[i]);
  EXPECT_NEAR(sum / 86400, 2 / 3.14159, 0.06); // 0.84 if it were
}

TEST_F(MovieExportSound, IsSilentWhereTheTrackHasNone) {
  const auto source = rig.paint("s.mp4", 90, 30, h264, toneInput(1));
  MovieExport movie = exportOf(source, {{0, 3000, 1}});
  movie.composition.audioLanes = {{0, {0.9F}}};
  const auto sound = exported(movie);
  EXPECT_EQ(length(movie), 144000);
  EXPECT_NEAR(loudest(sound, 4800, 43200), 0.45, 0.03);
  EXPECT_LT(loudest(sound, 52800, 144000), 0.001F);
}

TEST_F(MovieExportSound, TakesOtherRatesAndOneChannel) {
  for (const auto& [rate, channels] :
       std::vector<std::pair<int, int>>{{44100, 2}, {44100, 1}, {48000, 1}, {22050, 1}}) {
    const std::string name = std::to_string(rate) + "-" + std::to_string(channels);
    const auto source = rig.paint(name + ".mp4", 60, 30, h264, toneInput(2, 1000, rate, channels));
    MovieExport movie = exportOf(source, {{500, 1500, 1}});
    movie.outputPath = rig.path(name + "-out.mp4");
    movie.composition.audioLanes = {{0, {1}}};
    const auto sound = exported(movie);
    EXPECT_EQ(length(movie), 48000) << name;
    EXPECT_NEAR(toneIn(sound, 2400, 45600), 1000, 0.5) << name;
    EXPECT_NEAR(loudest(sound, 2400, 45600), 0.5, 0.03) << name;
  }
}

TEST_F(MovieExportSound, RefusesLanesThatAreNotThereOrLackAVolume) {
  const auto source = rig.paint("s.mp4", 30, 30, h264, toneInput(1));
  MovieExport movie = exportOf(source, {{0, 500, 1}, {500, 1000, 1}});
  movie.composition.audioLanes = {{1, {1, 1}}};
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  movie.composition.audioLanes = {{0, {1}}};
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
}

} // namespace
} // namespace tessarin
