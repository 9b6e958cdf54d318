#include "modules/media/MovieFile.hpp"

#include "container/Movie.hpp"
#include "support/LittleMovie.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace tessarin::media {
namespace {

// Of the screen and the camera, with a key picture of the screen each second; times are in tenths of a
// second.
class MovieFileTest : public ::testing::Test {
 protected:
  static constexpr std::int64_t tenth = videoTimescale / 10;

  static std::vector<MovieTrack> tracks() {
    const MovieTrack track = videoTrack(testing::littleVideoDescription(16, 16));
    return {track, track};
  }
  void append(std::size_t track, int from, int to) {
    for (int time = from; time < to; ++time)
      file.append(track, CodedPicture{testing::littleSample(track), time % 10 == 0}, time * tenth);
  }
  void screen(int from, int to) { append(0, from, to); }
  void camera(int from, int to) { append(1, from, to); }

  // Pictures on the disk, of the screen and of the camera. Of each the newest waits for the next one, which
  // tells how long it lasts.
  std::pair<std::size_t, std::size_t> written() const {
    const auto reader = machineFileSystem().open(path, OpenMode::read);
    if (reader->info().sizeBytes == 0)
      return {0, 0};
    const container::Movie movie = container::readMovie(*reader);
    return {movie.tracks.at(0).samples.size(), movie.tracks.at(1).samples.size()};
  }

  TemporaryDirectory directory;
  const std::string path = directory / "segment.mp4";
  MovieFile file{machineFileSystem(), path, {videoTimescale, 10 * std::int64_t{videoTimescale}}, tracks()};
};

using Pictures = std::pair<std::size_t, std::size_t>;

TEST_F(MovieFileTest, AFragmentEndsWithTheFirstKeyPictureThatIsDue) {
  camera(0, 12);
  screen(0, 10);
  EXPECT_EQ(written(), Pictures(0, 0));
  screen(10, 11);
  EXPECT_EQ(written(), Pictures(10, 10));
}

TEST_F(MovieFileTest, ACameraMayBeAQuarterOfASecondBehind) {
  camera(0, 9); // up to 0.8 s: 0.2 behind
  screen(0, 11);
  EXPECT_EQ(written(), Pictures(10, 8));
}

TEST_F(MovieFileTest, AFragmentWaitsForACameraThatIsBehind) {
  camera(0, 8); // up to 0.7 s: 0.3 behind
  screen(0, 20);
  EXPECT_EQ(written(), Pictures(0, 0));
  camera(8, 21);
  screen(20, 21);
  EXPECT_EQ(written(), Pictures(20, 20));
  screen(21, 111);
  EXPECT_EQ(written(), Pictures(20, 20)) << "the next one counts from there";
}

TEST_F(MovieFileTest, ACameraThatBringsNothingIsNotWaitedForForLong) {
  screen(0, 40);
  EXPECT_EQ(written(), Pictures(0, 0));
  screen(40, 41); // three seconds behind what was due
  EXPECT_EQ(written(), Pictures(40, 0));
}

} // namespace
} // namespace tessarin::media
