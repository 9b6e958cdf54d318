#include "recording/RecordingMerger.hpp"

#include "support/FaultyFileSystem.hpp"
#include "support/SyntheticMovie.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using container::Movie;
using container::TrackKind;
using Error = RecordingMergeError;
using Paths = std::vector<std::string>;

std::optional<Error> errorOf(const std::function<void()>& action) {
  try {
    action();
    return std::nullopt;
  } catch (const Failure<Error>& failure) {
    return failure.value();
  }
}

// ---- The plan

TEST(RecordingMergePlan, PutsSegmentsOneBehindTheOtherExactly) {
  const std::vector<MediaTime> durations = {MediaTime(1, 3), MediaTime(90001, 90000), MediaTime(500, 1000)};
  const RecordingMergePlan plan(durations);
  EXPECT_EQ(plan.insertions,
            (std::vector<RecordingMergeInsertion>{{MediaTime::zero(), MediaTime(1, 3)},
                                                  {MediaTime(1, 3), MediaTime(90001, 90000)},
                                                  {MediaTime(120001, 90000), MediaTime(1, 2)}}));
  EXPECT_EQ(plan.total, MediaTime(165001, 90000));
}

TEST(RecordingMergePlan, NeedsSegmentsThatLast) {
  const auto errorFor = [](const std::vector<MediaTime>& durations) {
    return errorOf([&] { const RecordingMergePlan plan(durations); });
  };
  EXPECT_EQ(errorFor({}), Error::noSegments);
  EXPECT_EQ(errorFor({MediaTime()}), Error::invalidSegment);
  EXPECT_EQ(errorFor({MediaTime::zero()}), Error::invalidSegment);
  EXPECT_EQ(errorFor({MediaTime(1, 1), MediaTime(-1, 1000)}), Error::invalidSegment);
  EXPECT_EQ(errorFor({MediaTime(1, 1'000'000)}), std::nullopt);
}

// ---- Merging

// Keeps what it is asked for, and writes a file or fails as it is told.
class ScriptedReencoder final : public AudioReencoder {
 public:
  void reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) override {
    calls.push_back(pieces);
    if (fails)
      throw std::runtime_error("no coder");
    std::ofstream(outputPath) << content;
  }

  std::vector<std::vector<AudioPiece>> calls;
  bool fails = false;
  std::string content = "coded anew";
};

class RecordingMergerTest : public ::testing::Test {
 protected:
  RecordingMergerTest() {
    std::filesystem::create_directory(directory / "segments");
    std::filesystem::create_directory(directory / "out");
  }

  std::string segment(const std::vector<SyntheticTrack>& tracks, bool isFinished = true) {
    const std::string path = directory / ("segments/segment-" + std::to_string(count++) + ".mp4");
    writeSyntheticMovie(path, tracks, isFinished);
    return path;
  }

  std::string out(const std::string& name) const { return directory / ("out/" + name); }
  std::string bytesOf(const std::string& path) const {
    return directory.read(std::filesystem::relative(path, directory.path()).string());
  }
  // Everything in the output directory, hidden names too.
  Paths outputs() const {
    Paths names;
    for (const auto& entry : std::filesystem::directory_iterator(directory / "out"))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  bool wasMadeByCloning() const {
    return files.count(FileOperation::clone) == 1 && files.count(FileOperation::write) == 0;
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ScriptedReencoder reencoder;
  RecordingMerger merger{files, reencoder};
  int count = 0;
};

Paths joined(Paths first, const Paths& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(RecordingMergerTest, JoinsTheScreenTrackOfTwoSegmentsWithoutAGap) {
  const Paths segments = {segment({videoOf(1001), videoOf(1001)}), segment({videoOf(500), videoOf(500)})};
  const std::int64_t size = merger.mergeVideoTrack(segments, out("screen.mp4"), 0);

  EXPECT_EQ(size, static_cast<std::int64_t>(std::filesystem::file_size(out("screen.mp4"))));
  EXPECT_EQ(outputs(), Paths{"screen.mp4"});
  const Movie movie = movieAt(out("screen.mp4"));
  ASSERT_EQ(movie.tracks.size(), 1U);
  EXPECT_FALSE(movie.isFragmented);
  EXPECT_EQ(movie.duration, MediaTime(1501, 1000));
  const container::Track& track = movie.tracks.front();
  EXPECT_EQ(track.descriptions.front().codec, "avc1");
  ASSERT_EQ(track.samples.size(), 31U + 15U);
  EXPECT_EQ(MediaTime(track.samples[31].decodeTime, track.timescale), MediaTime(1001, 1000));
  EXPECT_EQ(sampleBytesOf(out("screen.mp4"), 0),
            joined(sampleBytesOf(segments[0], 0), sampleBytesOf(segments[1], 0)));
}

TEST_F(RecordingMergerTest, TakesTheCameraTrackByItsPlace) {
  const Paths segments = {segment({videoOf(1000), videoOf(1000)}), segment({videoOf(500), videoOf(500)})};
  merger.mergeVideoTrack(segments, out("camera.mp4"), 1);
  EXPECT_EQ(sampleBytesOf(out("camera.mp4"), 0),
            joined(sampleBytesOf(segments[0], 1), sampleBytesOf(segments[1], 1)));
}

TEST_F(RecordingMergerTest, StretchesAPictureThatEndsBeforeItsSegment) {
  const Paths segments = {segment({videoOf(1000), audioOf(1200)}), segment({videoOf(500), audioOf(500)})};
  merger.mergeVideoTrack(segments, out("screen.mp4"), 0);
  const container::Track track = movieAt(out("screen.mp4")).tracks.front();
  EXPECT_EQ(MediaTime(track.samples[30].decodeTime, track.timescale), MediaTime(1200, 1000));
}

TEST_F(RecordingMergerTest, RefusesASegmentWithoutTheVideoTrack) {
  const Paths segments = {segment({videoOf(1000), videoOf(1000)}), segment({videoOf(500), audioOf(500)})};
  for (const std::int64_t index : {-1, 1, 2})
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), index); }),
              Error::missingVideo);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, ClonesALoneSegmentThatAlreadyIsTheScreenTrack) {
  const std::string only = segment({videoOf(1000)});
  const std::int64_t size = merger.mergeVideoTrack({only}, out("screen.mp4"), 0);
  EXPECT_TRUE(wasMadeByCloning());
  EXPECT_EQ(bytesOf(out("screen.mp4")), bytesOf(only));
  EXPECT_EQ(size, static_cast<std::int64_t>(std::filesystem::file_size(only)));
  EXPECT_EQ(outputs(), Paths{"screen.mp4"});
}

TEST_F(RecordingMergerTest, CopiesWhereTheVolumeCannotClone) {
  const std::string only = segment({videoOf(1000)});
  files.refuseClones();
  merger.mergeVideoTrack({only}, out("screen.mp4"), 0);
  EXPECT_EQ(files.count(FileOperation::copy), 1U);
  EXPECT_EQ(bytesOf(out("screen.mp4")), bytesOf(only));
}

TEST_F(RecordingMergerTest, CopiesWhenACloneFails) {
  const std::string only = segment({videoOf(1000)});
  files.failNth(FileOperation::clone, 1, EPERM);
  merger.mergeVideoTrack({only}, out("screen.mp4"), 0);
  EXPECT_EQ(bytesOf(out("screen.mp4")), bytesOf(only));
}

TEST_F(RecordingMergerTest, TakesALoneSegmentApartThatHoldsMore) {
  const std::string withSound = segment({videoOf(1000), audioOf(1000)});
  merger.mergeVideoTrack({withSound}, out("screen.mp4"), 0);
  const Movie movie = movieAt(out("screen.mp4"));
  ASSERT_EQ(movie.tracks.size(), 1U);
  EXPECT_EQ(sampleBytesOf(out("screen.mp4"), 0), sampleBytesOf(withSound, 0));
}

TEST_F(RecordingMergerTest, MakesAnOrdinaryFileOfASegmentThatACrashHasLeft) {
  const std::string torn = segment({videoOf(1000)}, false);
  ASSERT_TRUE(movieAt(torn).isFragmented);
  merger.mergeVideoTrack({torn}, out("screen.mp4"), 0);
  merger.mergeShareVideo(Paths{torn}, std::vector<std::int64_t>{}, out("recording.mp4"));
  for (const char* name : {"screen.mp4", "recording.mp4"}) {
    EXPECT_FALSE(movieAt(out(name)).isFragmented);
    EXPECT_EQ(sampleBytesOf(out(name), 0), sampleBytesOf(torn, 0));
  }
}

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

TEST_F(RecordingMergerTest, NeedsSegments) {
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({}, out("screen.mp4"), 0); }), Error::noSegments);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({}, out("a.m4a"), 0); }), Error::noSegments);
  EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{}, std::vector<std::int64_t>{}, out("r.mp4")); }),
            Error::invalidSegment);
}

TEST_F(RecordingMergerTest, RefusesSegmentsThatAreNoMovies) {
  const std::string good = segment({videoOf(1000)});
  const std::string link = directory / "segments/link.mp4";
  std::filesystem::create_symlink(good, link);
  SyntheticTrack nothing = videoOf(1000);
  nothing.sampleCount = 0;
  for (const std::string& bad :
       {directory / "segments/missing.mp4", link, directory.write("segments/text.mp4", "no movie"),
        directory / "segments", segment({nothing})}) {
    EXPECT_EQ(errorOf([&] {
                merger.mergeVideoTrack({good, bad}, out("screen.mp4"), 0);
              }),
              Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({bad}, out("screen.mp4"), 0); }), Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeAudio({bad}, out("a.m4a"), 0); }), Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{bad}, std::vector<std::int64_t>{}, out("r.mp4")); }),
              Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(bad, Paths{}, out("r.mp4")); }), Error::invalidSegment);
  }
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, NeverReplacesAnExistingOutput) {
  const std::string only = segment({videoOf(1000), audioOf(1000)});
  const std::string existing = directory.write("out/existing.mp4", "kept");
  std::filesystem::create_symlink("/nowhere", out("link.mp4"));
  for (const std::string& path : {existing, out("link.mp4")}) {
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({only}, path, 0); }), Error::exportFailed);
    EXPECT_EQ(errorOf([&] { merger.mergeAudio({only}, path, 0); }), Error::exportFailed);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{only}, std::vector<std::int64_t>{0}, path); }),
              Error::exportFailed);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(only, Paths{}, path); }), Error::exportFailed);
  }
  EXPECT_EQ(bytesOf(existing), "kept");
  EXPECT_EQ(outputs(), (Paths{"existing.mp4", "link.mp4"}));
  // The arguments are looked at first, then the output, then the segments.
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({}, existing, 0); }), Error::noSegments);
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({directory / "missing"}, existing, 0); }),
            Error::exportFailed);
}

TEST_F(RecordingMergerTest, DoesNotReplaceAnOutputThatAppearsMeanwhile) {
  const std::string lone = segment({videoOf(1000)});
  const std::string other = segment({videoOf(1000)});
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::rename)
      directory.write("out/screen.mp4", "somebody's");
  });
  for (const Paths& segments : {Paths{lone}, Paths{lone, other}}) {
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); }), Error::exportFailed);
    EXPECT_EQ(bytesOf(out("screen.mp4")), "somebody's");
    EXPECT_EQ(outputs(), Paths{"screen.mp4"});
    std::filesystem::remove(out("screen.mp4"));
  }
}

TEST_F(RecordingMergerTest, LeavesNothingBehindWhenWritingFailsSoThatTheNextTryWorks) {
  const Paths lone = {segment({videoOf(1000)})};
  const Paths two = {segment({videoOf(1000), audioOf(1000)}), segment({videoOf(1000), audioOf(1000)})};
  files.refuseClones();
  reencoder.fails = true;
  const std::vector<std::function<void(const std::string&)>> merges = {
      [&](const std::string& path) { merger.mergeVideoTrack(lone, path, 0); },
      [&](const std::string& path) { merger.mergeVideoTrack(two, path, 0); },
      [&](const std::string& path) { merger.mergeAudio(two, path, 0); },
      [&](const std::string& path) { merger.mergeShareVideo(two, std::vector<std::int64_t>{0}, path); },
  };
  for (const auto& merge : merges)
    for (const FileOperation operation : {FileOperation::open, FileOperation::info, FileOperation::write,
                                          FileOperation::copy, FileOperation::rename})
      for (std::size_t nth = 0; nth < 3; ++nth) {
        files.inject({operation, "/out/", nth, 1, ENOSPC, std::nullopt});
        const std::optional<Error> error = errorOf([&] { merge(out("merged.mp4")); });
        if (error) {
          EXPECT_EQ(error, Error::exportFailed);
          EXPECT_EQ(outputs(), Paths{});
          files.clearFaults();
          files.refuseClones();
          merge(out("merged.mp4"));
        }
        EXPECT_EQ(outputs(), Paths{"merged.mp4"});
        std::filesystem::remove(out("merged.mp4"));
        files.clearFaults();
        files.refuseClones();
      }
}

TEST_F(RecordingMergerTest, RefusesAnOutputWithoutBytes) {
  const std::string only = segment({videoOf(1000)});
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::info && event.path.ends_with(".tmp"))
      std::filesystem::resize_file(event.path, 0);
  });
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({only}, out("screen.mp4"), 0); }), Error::exportFailed);
  EXPECT_EQ(outputs(), Paths{});
}

// ---- Sound that cannot be joined as it is

TEST_F(RecordingMergerTest, CodesSoundAnewWhenItCannotBeJoinedAsItIs) {
  const Paths segments = {segment({videoOf(1000), audioOf(700), audioOf(1000)}),
                          segment({videoOf(500), audioOf(500), audioOf(600)})};
  for (const FileOperation operation : {FileOperation::write, FileOperation::copy, FileOperation::sync}) {
    reencoder.calls.clear();
    files.inject({operation, "/out/", 0, 1, EIO, std::nullopt});
    EXPECT_EQ(merger.mergeAudio(segments, out("microphone.m4a"), 1), 10);
    EXPECT_EQ(outputs(), Paths{"microphone.m4a"}) << "nothing is left of the first try";
    EXPECT_EQ(bytesOf(out("microphone.m4a")), "coded anew");
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

// ---- The share video from segments

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

// ---- The share video from tracks

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

TEST_F(RecordingMergerTest, RunsManyMergesAtOnce) {
  const Paths segments = {segment({videoOf(3000), videoOf(3000), audioOf(3000), audioOf(3000)}),
                          segment({videoOf(2000), videoOf(2000), audioOf(2000), audioOf(2000)})};
  std::vector<std::thread> threads;
  threads.emplace_back([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); });
  threads.emplace_back([&] { merger.mergeVideoTrack(segments, out("camera.mp4"), 1); });
  threads.emplace_back([&] { merger.mergeAudio(segments, out("system-audio.m4a"), 0); });
  threads.emplace_back([&] { merger.mergeAudio(segments, out("microphone.m4a"), 1); });
  threads.emplace_back([&] {
    merger.mergeShareVideo(segments, std::vector<std::int64_t>{0, 1}, out("recording.mp4"));
  });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(outputs(),
            (Paths{"camera.mp4", "microphone.m4a", "recording.mp4", "screen.mp4", "system-audio.m4a"}));
  for (const std::string& name : outputs())
    EXPECT_EQ(movieAt(out(name)).duration, MediaTime(5, 1)) << name;
}

} // namespace
} // namespace tessarin
