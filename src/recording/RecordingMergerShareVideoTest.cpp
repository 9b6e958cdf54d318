#include "support/RecordingMergerRig.hpp"

#include <cerrno>
#include <filesystem>
#include <utility>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using container::Movie;
using container::TrackKind;

TEST_F(RecordingMergerTest, ChecksTheArgumentsOfAShareVideo) {
  const Paths segments = {segment({videoOf(1000), audioOf(1000), audioOf(1000)})};
  using Indices = std::vector<std::int64_t>;
  for (const Indices& indices : {Indices{0, 1, 2}, Indices{0, 0}, Indices{1, 1}, Indices{-1}, Indices{0, -1}})
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(segments, indices, out("recording.mp4")); }),
              Error::invalidSegment);
  EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(segments, Indices{}, segments[0]); }),
            Error::invalidSegment);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, ClonesALoneSegmentThatAlreadyIsTheShareVideo) {
  using Indices = std::vector<std::int64_t>;
  const std::vector<std::pair<std::vector<SyntheticTrack>, Indices>> rows = {
      {{videoOf(1000)}, {}},
      {{videoOf(1000), audioOf(1000)}, {0}},
      {{videoOf(1000), audioOf(1000), audioOf(1000)}, {0, 1}},
  };
  for (const auto& [tracks, indices] : rows) {
    const std::string only = segment(tracks);
    files.clearLog();
    merger.mergeShareVideo(Paths{only}, indices, out("recording.mp4"));
    EXPECT_TRUE(wasMadeByCloning());
    EXPECT_EQ(bytesOf(out("recording.mp4")), bytesOf(only));
    std::filesystem::remove(out("recording.mp4"));
  }
}

TEST_F(RecordingMergerTest, BuildsTheShareVideoWhereTheSegmentHoldsOtherTracks) {
  using Indices = std::vector<std::int64_t>;
  struct Row {
    std::vector<SyntheticTrack> tracks;
    Indices indices;
    std::vector<std::size_t> sources; // places of the output's tracks in the segment
  };
  for (const Row& row : {Row{{videoOf(1000), videoOf(1000)}, {}, {0}},
                         Row{{videoOf(1000), videoOf(1000), audioOf(1000)}, {0}, {0, 2}},
                         Row{{videoOf(1000), audioOf(1000), audioOf(1000)}, {1}, {0, 2}},
                         Row{{videoOf(1000), audioOf(1000), audioOf(1000)}, {0}, {0, 1}},
                         Row{{videoOf(1000), audioOf(1000), audioOf(1000)}, {1, 0}, {0, 2, 1}},
                         Row{{videoOf(1000), audioOf(1000)}, {}, {0}}}) {
    const std::string only = segment(row.tracks);
    files.clearLog();
    merger.mergeShareVideo(Paths{only}, row.indices, out("recording.mp4"));
    EXPECT_EQ(files.count(FileOperation::clone), 0U);
    ASSERT_EQ(movieAt(out("recording.mp4")).tracks.size(), row.sources.size());
    for (std::size_t track = 0; track < row.sources.size(); ++track)
      EXPECT_EQ(sampleBytesOf(out("recording.mp4"), track), sampleBytesOf(only, row.sources[track]));
    std::filesystem::remove(out("recording.mp4"));
  }
}

TEST_F(RecordingMergerTest, JoinsPictureAndSoundOfSeveralSegments) {
  const Paths segments = {segment({videoOf(1000), videoOf(1000), audioOf(990), audioOf(1000)}),
                          segment({videoOf(500), videoOf(500), audioOf(500), audioOf(480)})};
  merger.mergeShareVideo(segments, std::vector<std::int64_t>{0, 1}, out("recording.mp4"));
  const Movie movie = movieAt(out("recording.mp4"));
  ASSERT_EQ(movie.tracks.size(), 3U);
  EXPECT_EQ(movie.duration, MediaTime(1500, 1000));
  EXPECT_EQ(bytesOf(out("recording.mp4")).substr(4, 8), "ftypmp42");
  const std::size_t sources[] = {0, 2, 3};
  for (std::size_t track = 0; track < 3; ++track) {
    const container::Track& merged = movie.tracks[track];
    const Paths first = sampleBytesOf(segments[0], sources[track]);
    EXPECT_EQ(sampleBytesOf(out("recording.mp4"), track),
              joined(first, sampleBytesOf(segments[1], sources[track])));
    EXPECT_EQ(MediaTime(merged.samples.at(first.size()).decodeTime, merged.timescale), MediaTime(1000, 1000));
  }
}

TEST_F(RecordingMergerTest, RefusesAShareVideoWithoutAPicture) {
  EXPECT_EQ(errorOf([&] {
              merger.mergeShareVideo(Paths{segment({audioOf(1000)})}, std::vector<std::int64_t>{0},
                                     out("recording.mp4"));
            }),
            Error::missingVideo);
}

TEST_F(RecordingMergerTest, ChecksTheFilesOfAShareVideo) {
  const std::string screen = segment({videoOf(1000)});
  const std::string a = segment({audioOf(1000)});
  const std::string b = segment({audioOf(1000)});
  const std::string c = segment({audioOf(1000)});
  const auto errorFor = [&](const std::string& screenPath, const Paths& audio, const std::string& path) {
    return errorOf([&] { merger.mergeShareVideo(screenPath, audio, path); });
  };
  const std::string output = out("recording.mp4");
  EXPECT_EQ(errorFor(screen, {}, screen), Error::invalidSegment);
  EXPECT_EQ(errorFor(screen, {a, b, c}, output), Error::invalidSegment);
  EXPECT_EQ(errorFor(screen, {a, a}, output), Error::invalidSegment);
  EXPECT_EQ(errorFor(screen, {a, b}, b), Error::invalidSegment);
  EXPECT_EQ(errorFor(a, {}, output), Error::invalidSegment);
  EXPECT_EQ(errorFor(segment({videoOf(1000), videoOf(1000)}), {}, output), Error::invalidSegment);
  EXPECT_EQ(errorFor(segment({videoOf(1000), audioOf(1000)}), {}, output), Error::invalidSegment);
  EXPECT_EQ(errorFor(screen, {segment({videoOf(1000)})}, output), Error::invalidSegment);
  EXPECT_EQ(errorFor(screen, {segment({audioOf(1000), audioOf(1000)})}, output), Error::invalidSegment);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, ClonesTheScreenTrackWhereThereIsNoSound) {
  const std::string screen = segment({videoOf(1000)});
  merger.mergeShareVideo(screen, Paths{}, out("recording.mp4"));
  EXPECT_TRUE(wasMadeByCloning());
  EXPECT_EQ(bytesOf(out("recording.mp4")), bytesOf(screen));
}

TEST_F(RecordingMergerTest, CutsSoundThatIsLongerThanThePicture) {
  const std::string screen = segment({videoOf(1000)});
  const Paths sounds = {segment({audioOf(1100)}), segment({audioOf(900)})};
  merger.mergeShareVideo(screen, sounds, out("recording.mp4"));
  const Movie movie = movieAt(out("recording.mp4"));
  ASSERT_EQ(movie.tracks.size(), 3U);
  EXPECT_EQ(movie.tracks[0].kind, TrackKind::video);
  EXPECT_EQ(movie.tracks[0].duration, MediaTime(1000, 1000));
  EXPECT_EQ(movie.tracks[1].duration, MediaTime(1000, 1000));
  EXPECT_EQ(movie.tracks[2].duration, MediaTime(900, 1000));
  EXPECT_EQ(sampleBytesOf(out("recording.mp4"), 0), sampleBytesOf(screen, 0));
  EXPECT_EQ(sampleBytesOf(out("recording.mp4"), 2), sampleBytesOf(sounds[1], 0));
}

} // namespace
} // namespace tessarin
