#include "support/RecordingMergerRig.hpp"

#include <cerrno>
#include <filesystem>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using container::Movie;
using container::TrackKind;

TEST_F(RecordingMergerTest, PlacesSoundByTheLengthOfItsSegments) {
  // The first segment's sound overruns nothing and falls short by 300 ms; the second one's is longer than
  // its own picture, so that the segment is as long as the sound.
  const Paths segments = {segment({videoOf(1000), audioOf(700)}), segment({videoOf(500), audioOf(600)})};
  merger.mergeAudio(segments, out("system-audio.m4a"), 0);
  const Movie movie = movieAt(out("system-audio.m4a"));
  ASSERT_EQ(movie.tracks.size(), 1U);
  const container::Track& track = movie.tracks.front();
  EXPECT_EQ(track.kind, TrackKind::audio);
  EXPECT_EQ(movie.duration, MediaTime(1600, 1000));
  const std::size_t firstCount = sampleBytesOf(segments[0], 1).size();
  EXPECT_EQ(MediaTime(track.samples.at(firstCount).decodeTime, track.timescale), MediaTime(1000, 1000));
  EXPECT_EQ(sampleBytesOf(out("system-audio.m4a"), 0),
            joined(sampleBytesOf(segments[0], 1), sampleBytesOf(segments[1], 1)));
  EXPECT_EQ(bytesOf(out("system-audio.m4a")).substr(4, 8), "ftypM4A ");
}

TEST_F(RecordingMergerTest, MovesSoundThatBeginsLateToTheBeginningOfItsSegment) {
  SyntheticTrack late = audioOf(1000);
  late.firstTime = 4800; // 100 ms
  late.sampleCount = 42;
  const Paths segments = {segment({videoOf(1000), late}), segment({videoOf(500), audioOf(500)})};
  merger.mergeAudio(segments, out("microphone.m4a"), 0);
  const container::Track track = movieAt(out("microphone.m4a")).tracks.front();
  EXPECT_EQ(track.start, MediaTime::zero());
  EXPECT_EQ(MediaTime(track.samples.at(42).decodeTime, track.timescale), MediaTime(1000, 1000));
}

TEST_F(RecordingMergerTest, RefusesASegmentWithoutTheAudioTrack) {
  const Paths segments = {segment({videoOf(1000), audioOf(1000)}), segment({videoOf(1000)})};
  EXPECT_EQ(errorOf([&] { merger.mergeAudio(segments, out("a.m4a"), 0); }), Error::compositionFailed);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({segments[0]}, out("a.m4a"), 1); }), Error::compositionFailed);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({segments[0]}, out("a.m4a"), -1); }), Error::compositionFailed);
  EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(segments, std::vector<std::int64_t>{0}, out("r.mp4")); }),
            Error::compositionFailed);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, RefusesAnAudioTrackWithNothingInIt) {
  SyntheticTrack silent = audioOf(1000);
  silent.sampleCount = 0;
  const std::string path = segment({videoOf(1000), silent});
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({path}, out("a.m4a"), 0); }), Error::invalidSegment);
}

TEST_F(RecordingMergerTest, CodesSoundAnewWhenItCannotBeJoinedAsItIs) {
  const Paths segments = {segment({videoOf(1000), audioOf(700), audioOf(1000)}),
                          segment({videoOf(500), audioOf(500), audioOf(600)})};
  for (const FileOperation operation : {FileOperation::write, FileOperation::copy, FileOperation::sync}) {
    reencoder.calls.clear();
    files.clearLog();
    files.inject({operation, "/out/", 0, 1, EIO, std::nullopt});
    EXPECT_EQ(merger.mergeAudio(segments, out("microphone.m4a"), 1), 10);
    EXPECT_EQ(outputs(), Paths{"microphone.m4a"}) << "nothing is left of the first try";
    EXPECT_EQ(bytesOf(out("microphone.m4a")), "coded anew");
    EXPECT_EQ(files.log().back().operation, FileOperation::sync) << "its name is on the disk";
    EXPECT_EQ(files.log().back().path, directory / "out");
    ASSERT_EQ(reencoder.calls.size(), 1U);
    const std::vector<AudioPiece>& pieces = reencoder.calls[0];
    ASSERT_EQ(pieces.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
      EXPECT_EQ(pieces[i].path, segments[i]);
      EXPECT_EQ(pieces[i].audioTrackIndex, 1);
    }
    EXPECT_EQ(pieces[0].start, MediaTime::zero());
    EXPECT_EQ(pieces[0].duration, MediaTime(1, 1));
    EXPECT_EQ(pieces[1].start, MediaTime(1, 1)) << "where its segment is";
    EXPECT_EQ(pieces[1].duration, MediaTime(600, 1000));
    std::filesystem::remove(out("microphone.m4a"));
    files.clearFaults();
  }
}

TEST_F(RecordingMergerTest, DoesNotCodeAnewWhatIsJoinedOrCannotBeComposed) {
  const std::string good = segment({videoOf(1000), audioOf(1000)});
  merger.mergeAudio({good, good}, out("a.m4a"), 0);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({good}, out("a.m4a"), 0); }), Error::exportFailed);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({good}, out("b.m4a"), 1); }), Error::compositionFailed);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({directory / "no"}, out("b.m4a"), 0); }), Error::invalidSegment);
  EXPECT_TRUE(reencoder.calls.empty());
}

TEST_F(RecordingMergerTest, FailsWhenSoundCanNeitherBeJoinedNorCodedAnew) {
  const std::string only = segment({videoOf(1000), audioOf(1000)});
  files.inject({FileOperation::write, "/out/", 0, FaultyFileSystem::always, ENOSPC, std::nullopt});
  reencoder.fails = true;
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({only}, out("a.m4a"), 0); }), Error::exportFailed);
  reencoder.fails = false;
  reencoder.content.clear();
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({only}, out("a.m4a"), 0); }), Error::exportFailed)
      << "a file without bytes";
  EXPECT_EQ(reencoder.calls.size(), 2U);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, NeverCodesPicturesOrTheShareVideoAnew) {
  const std::string only = segment({videoOf(1000), audioOf(1000), audioOf(1000)});
  files.inject({FileOperation::write, "/out/", 0, FaultyFileSystem::always, ENOSPC, std::nullopt});
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({only}, out("s.mp4"), 0); }), Error::exportFailed);
  EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{only}, std::vector<std::int64_t>{0}, out("r.mp4")); }),
            Error::exportFailed);
  EXPECT_TRUE(reencoder.calls.empty());
}

} // namespace
} // namespace tessarin
