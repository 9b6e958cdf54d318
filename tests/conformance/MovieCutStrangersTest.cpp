#include "MovieCutTesting.hpp"

#include <gtest/gtest.h>

#include <algorithm>

// Cuts of files that other programs have made.
namespace tessarin {
namespace {

constexpr const char* ordered = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 -keyint_min 30 -bf 0";
constexpr const char* reordered = "-c:v libx264 -preset veryfast -pix_fmt yuv420p -g 30 -bf 3";

class MovieCutStrangers : public ::testing::Test {
 protected:
  // Yields how many pictures are copies.
  std::size_t cut(const std::string& source, const std::vector<Cut>& cuts, int pictures = 120,
                  double rate = 30) {
    const MovieExport movie = cutOf(rig, source, cuts);
    EXPECT_EQ(rig.run(movie), std::nullopt);
    const auto shown = shownIn(movie.outputPath);
    const auto expected = expectedOf(cuts, evenly(pictures, rate));
    EXPECT_EQ(shown.size(), expected.size());
    for (std::size_t i = 0; i < std::min(shown.size(), expected.size()); ++i) {
      // The scale of the track may be too coarse for a sum of milliseconds.
      EXPECT_NEAR(static_cast<double>(shown[i].first), static_cast<double>(expected[i].first), 50) << i;
      EXPECT_EQ(shown[i].second, expected[i].second) << i;
    }
    return copiedPictures(movie.outputPath, source);
  }

  MovieRig rig;
};

TEST_F(MovieCutStrangers, AreCopiedWhereStretchesBeginAtKeysAndCodedAnewElse) {
  const auto source = rig.paint("s.mp4", 120, 30, ordered);
  EXPECT_EQ(cut(source, {{1000, 2500, 1}, {0, 500, 1}, {3000, 4000, 1}}), 45U + 15 + 30);
  EXPECT_EQ(cut(source, {{1000, 2500, 1}, {100, 500, 1}}), 0U);
}

TEST_F(MovieCutStrangers, KeepTheOrderOfTheirPictures) {
  const auto source = rig.paint("s.mp4", 120, 30, reordered);
  EXPECT_EQ(cut(source, {{0, 4000, 1}}), 120U);
  // Whole groups.
  EXPECT_EQ(cut(source, {{2000, 4000, 1}, {0, 1000, 1}}), 90U);
  for (std::int64_t end = 700; end <= 1100; end += 33)
    cut(source, {{0, end, 1}, {end, end + 400, 1}, {500, end, 1}});
  cut(source, {{1733, 2467, 1}, {33, 1234, 1}});
}

TEST_F(MovieCutStrangers, WithOpenGroupsAreNotTornApart) {
  for (const std::string coding :
       {"-c:v libx264 -preset veryfast -pix_fmt yuv420p -bf 3 -x264-params open-gop=1:keyint=20:scenecut=0",
        "-c:v libx265 -preset ultrafast -pix_fmt yuv420p -tag:v hvc1 -x265-params "
        "log-level=none:open-gop=1:keyint=20:bframes=3:scenecut=0"}) {
    SCOPED_TRACE(coding);
    const auto source = rig.paint("s.mp4", 120, 30, coding);
    EXPECT_EQ(cut(source, {{0, 4000, 1}}), 120U);
    for (const std::int64_t start : {600, 633, 667, 700, 1333})
      cut(source, {{start, 2000, 1}, {start + 500, 4000, 1}});
  }
}

TEST_F(MovieCutStrangers, MayHaveRatesThatFitNoMilliseconds) {
  const auto source =
      rig.paint("s.mp4", 120, 30, std::string(ordered) + " -vf settb=1001/30000,setpts=N -r 30000/1001");
  cut(source, {{1002, 2500, 1}, {0, 501, 1}, {34, 67, 1}}, 120, 30000.0 / 1001);
}

TEST_F(MovieCutStrangers, StayTurned) {
  const auto upright = rig.paint("upright.mp4", 90, 30, ordered);
  const std::string source = rig.path("turned.mp4");
  outputOf("ffmpeg -v error -y -i '" + upright + "' -c copy -metadata:s:v rotate=90 '" + source + "'");
  for (const std::int64_t start : {1000, 1100}) {
    const MovieExport movie = cutOf(rig, source, {{start, 2000, 1}});
    ASSERT_EQ(rig.run(movie), std::nullopt);
    const auto before = rig.assets.asset(source).videoTracks.at(0);
    const auto after = rig.assets.asset(movie.outputPath).videoTracks.at(0);
    EXPECT_EQ(after.preferredTransform, before.preferredTransform);
    EXPECT_EQ(after.naturalWidth, before.naturalWidth);
    EXPECT_EQ(after.naturalHeight, before.naturalHeight);
    EXPECT_EQ(after.subtypes, before.subtypes);
  }
}

TEST_F(MovieCutStrangers, OfOddSizesAreCodedAnewInEvenOnesWhereverTheCutsLie) {
  constexpr const char* odd =
      "-c:v libx264 -preset ultrafast -pix_fmt yuv444p -g 30 -bf 0 -vf crop=319:239:0:0";
  const auto plain = rig.paint("odd.mp4", 90, 30, odd);
  const auto uneven = rig.paint("uneven.mp4", 90, 30, std::string(odd) + ",setsar=sar=501/500:max=1000");
  for (const std::string& source : {plain, uneven}) {
    for (const std::int64_t start : {1000, 1100}) {
      const std::vector<Cut> cuts{{start, 2000, 1}};
      const MovieExport movie = cutOf(rig, source, cuts);
      ASSERT_EQ(rig.run(movie), std::nullopt);
      const AssetVideoTrack video = rig.assets.asset(movie.outputPath).videoTracks.at(0);
      EXPECT_EQ(video.naturalWidth, 318) << source << start;
      EXPECT_EQ(video.naturalHeight, 238);
      const auto shown = shownIn(movie.outputPath, 318, 238);
      const auto expected = expectedOf(cuts, evenly(90, 30));
      ASSERT_EQ(shown.size(), expected.size());
      for (std::size_t i = 0; i < shown.size(); ++i)
        EXPECT_EQ(shown[i].second, expected[i].second) << i;
    }
  }
}

// The last picture stays, and a stretch behind it shows it too.
TEST_F(MovieCutStrangers, MayHaveSoundThatIsLongerThanTheirPictures) {
  const auto source = rig.paint("s.mp4", 30, 30, std::string(ordered) + " -c:a aac", toneInput(3));
  const MovieExport movie = cutOf(rig, source, {{900, 1500, 1}, {2000, 2500, 1}, {0, 100, 1}}, 1);
  ASSERT_EQ(rig.run(movie), std::nullopt);
  const std::vector<Shown> expected{{0, 27},      {33333, 28},  {66667, 29}, {600000, 29},
                                    {1100000, 0}, {1133333, 1}, {1166667, 2}};
  const auto shown = shownIn(movie.outputPath);
  ASSERT_EQ(shown.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(shown[i].first), static_cast<double>(expected[i].first), 50);
    EXPECT_EQ(shown[i].second, expected[i].second);
  }
  EXPECT_EQ(rig.assets.asset(movie.outputPath).duration, MediaTime::milliseconds(1200));
}

} // namespace
} // namespace tessarin
