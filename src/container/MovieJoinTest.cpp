#include "container/MovieJoin.hpp"

#include "container/ContainerTesting.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace tessarin::container {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

// A source file with its index.
struct Source {
  MemoryFile file;
  Movie movie;

  const Track& track(std::size_t index = 0) const { return movie.tracks.at(index); }
};

struct SourceTrack {
  TrackSetup setup;
  SampleDescription description;
  std::int64_t interval = 1;
  std::size_t count = 0;
};

// Samples at equal distance, written by time; the first of every `keyInterval` is a key frame.
std::unique_ptr<Source> makeSource(const std::vector<SourceTrack>& tracks, std::uint32_t seed = 0,
                                   bool isFinished = true, std::size_t keyInterval = 5) {
  auto source = std::make_unique<Source>();
  std::vector<TrackSetup> setups;
  for (const SourceTrack& track : tracks)
    setups.push_back(track.setup);
  FragmentedMovieWriter writer(source->file, setups);
  std::vector<std::size_t> next(tracks.size(), 0);
  for (std::size_t i = 0; i < tracks.size(); ++i)
    writer.setDescription(i, tracks[i].description);
  for (;;) {
    std::size_t earliest = tracks.size();
    MediaTime earliestTime;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      const MediaTime time(static_cast<std::int64_t>(next[i]) * tracks[i].interval,
                           tracks[i].setup.timescale);
      if (next[i] < tracks[i].count && (earliest == tracks.size() || time < earliestTime)) {
        earliest = i;
        earliestTime = time;
      }
    }
    if (earliest == tracks.size())
      break;
    const std::size_t n = next[earliest]++;
    const bool isSync = tracks[earliest].setup.kind == TrackKind::audio || n % keyInterval == 0;
    writer.append(earliest, randomBytes(5 + n % 3, seed + static_cast<std::uint32_t>(n)),
                  earliestTime.value(), 0, isSync);
    if (earliest == 0 && isSync && n > 0)
      writer.flushFragment();
  }
  std::vector<std::int64_t> ends;
  for (const SourceTrack& track : tracks)
    ends.push_back(static_cast<std::int64_t>(track.count) * track.interval);
  if (isFinished)
    writer.finish(ends);
  source->movie = readMovie(source->file);
  return source;
}

SourceTrack video(std::int32_t timescale, std::int64_t interval, std::size_t count,
                  std::uint8_t variant = 0) {
  return {{TrackKind::video, timescale, 64, 48, 0}, videoDescription(64, 48, variant), interval, count};
}

SourceTrack audio(std::size_t count) {
  return {{TrackKind::audio, 48000, 0, 0, 1024}, audioDescription(), 1024, count};
}

JoinPiece piece(const Source& source, MediaTime start, MediaTime duration, std::size_t track = 0) {
  return {&source.file, &source.track(track), start, duration};
}

// The whole sources one behind another.
JoinTrack inARow(const std::vector<const Source*>& sources, std::size_t track = 0) {
  JoinTrack joined;
  MediaTime start = MediaTime::zero();
  for (const Source* source : sources) {
    joined.pieces.push_back(piece(*source, start, source->movie.duration, track));
    start = start + source->movie.duration;
  }
  return joined;
}

std::vector<Bytes> contents(const OpenFile& file, const Track& track) {
  std::vector<Bytes> found;
  for (const Sample& sample : track.samples)
    found.push_back(bytesAt(file, sample));
  return found;
}

std::vector<Bytes> contents(const std::vector<const Source*>& sources, std::size_t track = 0) {
  std::vector<Bytes> found;
  for (const Source* source : sources) {
    for (Bytes& bytes : contents(source->file, source->track(track)))
      found.push_back(std::move(bytes));
  }
  return found;
}

std::vector<std::int64_t> times(const Track& track) {
  std::vector<std::int64_t> found;
  for (const Sample& sample : track.samples)
    found.push_back(sample.decodeTime);
  return found;
}

std::vector<std::uint32_t> durations(const Track& track) {
  std::vector<std::uint32_t> found;
  for (const Sample& sample : track.samples)
    found.push_back(sample.duration);
  return found;
}

struct Joined {
  MemoryFile file;
  Movie movie;
};

std::unique_ptr<Joined> join(const std::vector<JoinTrack>& tracks) {
  auto joined = std::make_unique<Joined>();
  writeJoinedMovie(joined->file, tracks, "mp42");
  joined->movie = readMovie(joined->file);
  return joined;
}

TEST(MovieJoin, CopiesALonePieceWhole) {
  const auto source = makeSource({video(90000, 1500, 130)});
  const auto joined = join({inARow({source.get()})});
  EXPECT_FALSE(joined->movie.isFragmented);
  ASSERT_THAT(joined->movie.tracks, SizeIs(1));
  const Track& track = joined->movie.tracks[0];
  EXPECT_EQ(contents(joined->file, track), contents({source.get()}));
  EXPECT_EQ(times(track), times(source->track()));
  EXPECT_EQ(durations(track), durations(source->track()));
  EXPECT_EQ(track.timescale, 90000);
  EXPECT_EQ(track.descriptions, source->track().descriptions);
  EXPECT_EQ(joined->movie.duration, source->movie.duration);
  for (std::size_t i = 0; i < track.samples.size(); ++i)
    EXPECT_EQ(track.samples[i].isSync, i % 5 == 0) << i;
}

TEST(MovieJoin, PutsPiecesBehindEachOtherWithoutAGap) {
  const auto a = makeSource({video(90000, 1500, 7)}, 1);
  const auto b = makeSource({video(90000, 3000, 6)}, 2, false); // torn: its last sample was held back
  const auto c = makeSource({video(90000, 1500, 2)}, 3);
  ASSERT_EQ(b->movie.duration, MediaTime(15000, 90000));
  const auto joined = join({inARow({a.get(), b.get(), c.get()})});
  const Track& track = joined->movie.tracks[0];
  EXPECT_EQ(contents(joined->file, track), contents({a.get(), b.get(), c.get()}));
  EXPECT_THAT(times(track), ElementsAre(0, 1500, 3000, 4500, 6000, 7500, 9000, 10500, 13500, 16500, 19500,
                                        22500, 25500, 27000));
  EXPECT_EQ(joined->movie.duration, MediaTime(28500, 90000));
  EXPECT_THAT(track.descriptions, SizeIs(1));
}

TEST(MovieJoin, KeepsDifferingDescriptionsApartAndEqualOnesTogether) {
  const auto a = makeSource({video(600, 20, 2, 1)});
  const auto b = makeSource({video(600, 20, 3, 2)});
  const auto c = makeSource({video(600, 20, 2, 1)});
  const auto joined = join({inARow({a.get(), b.get(), c.get()})});
  const Track& track = joined->movie.tracks[0];
  EXPECT_THAT(track.descriptions, ElementsAre(videoDescription(64, 48, 1), videoDescription(64, 48, 2)));
  std::vector<int> used;
  for (const Sample& sample : track.samples)
    used.push_back(sample.description);
  EXPECT_THAT(used, ElementsAre(0, 0, 1, 1, 1, 0, 0));

  // And once more, from a source that holds both.
  Source source{joined->file, joined->movie};
  const auto again = join({inARow({&source})});
  EXPECT_EQ(again->movie.tracks[0].descriptions, track.descriptions);
  for (std::size_t i = 0; i < used.size(); ++i)
    EXPECT_EQ(again->movie.tracks[0].samples[i].description, used[i]) << i;
}

TEST(MovieJoin, TakesACommonTimescaleSoThatEveryTimeStaysExact) {
  const auto a = makeSource({video(30000, 1001, 3)});
  const auto b = makeSource({video(600, 20, 3)});
  const auto joined = join({inARow({a.get(), b.get()})});
  const Track& track = joined->movie.tracks[0];
  EXPECT_EQ(track.timescale, 30000);
  EXPECT_THAT(times(track), ElementsAre(0, 1001, 2002, 3003, 4003, 5003));

  const auto c = makeSource({video(90000, 3003, 3)});
  const auto d = makeSource({video(1024, 34, 3)});
  const auto coprime = join({inARow({c.get(), d.get()})});
  EXPECT_EQ(coprime->movie.tracks[0].timescale, 5'760'000);
  EXPECT_EQ(coprime->movie.duration, MediaTime(9009, 90000) + MediaTime(102, 1024));
}

TEST(MovieJoin, TakesTheFinestTimescaleWhereThereIsNoCommonOne) {
  const auto a = makeSource({video(9'999'991, 166'667, 3)});
  const auto b = makeSource({video(600, 20, 3)});
  const auto joined = join({inARow({b.get(), a.get()})});
  const Track& track = joined->movie.tracks[0];
  EXPECT_EQ(track.timescale, 9'999'991);
  EXPECT_THAT(times(track), ElementsAre(0, 333'333, 666'666, 1'000'000 - 1, 1'166'666, 1'333'333));
  EXPECT_THAT(durations(track), ElementsAre(333'333, 333'333, 333'333, 166'667, 166'667, 166'667));
}

TEST(MovieJoin, NeverDriftsHoweverManyPiecesThereAre) {
  const auto a = makeSource({video(30000, 1001, 2)});
  const auto b = makeSource({video(90000, 3003, 1)});
  std::vector<const Source*> sources;
  for (int i = 0; i < 500; ++i) {
    sources.push_back(a.get());
    sources.push_back(b.get());
  }
  const auto joined = join({inARow(sources)});
  EXPECT_EQ(joined->movie.duration, MediaTime(1500 * 1001, 30000));
  EXPECT_EQ(joined->movie.tracks[0].samples.back().decodeTime, 1499 * 3003);
}

TEST(MovieJoin, CutsAPieceAtItsEndAndStretchesItsLastSample) {
  const auto source = makeSource({video(600, 20, 5)});
  struct Case {
    std::int64_t duration;
    std::vector<std::uint32_t> durations;
  };
  const std::vector<Case> cases{
      {1, {1}},
      {20, {20}},
      {21, {20, 1}},
      {99, {20, 20, 20, 20, 19}},
      {100, {20, 20, 20, 20, 20}},
      {101, {20, 20, 20, 20, 21}},
      {700, {20, 20, 20, 20, 620}},
  };
  for (const Case& test : cases) {
    const auto joined = join({{{piece(*source, MediaTime::zero(), {test.duration, 600})}}});
    EXPECT_EQ(durations(joined->movie.tracks[0]), test.durations) << test.duration;
    EXPECT_EQ(joined->movie.duration, MediaTime(test.duration, 600));
  }
}

TEST(MovieJoin, FillsTheRoomBetweenPiecesWithTheLastSample) {
  const auto source = makeSource({video(600, 20, 2)});
  const auto joined = join({{{piece(*source, {0, 1}, {30, 600}), piece(*source, {100, 600}, {40, 600})}}});
  EXPECT_THAT(durations(joined->movie.tracks[0]), ElementsAre(20, 80, 20, 20));
  EXPECT_EQ(joined->movie.duration, MediaTime(140, 600));
}

TEST(MovieJoin, BeginsALateTrackByAPause) {
  const auto source = makeSource({video(600, 20, 2), audio(10)});
  const auto joined =
      join({{{piece(*source, {0, 1}, {40, 600})}}, {{piece(*source, {1, 50}, {2048, 48000}, 1)}}});
  const Track& late = joined->movie.tracks[1];
  EXPECT_EQ(late.start, MediaTime(1, 50));
  EXPECT_EQ(late.duration, MediaTime(2048, 48000));
  EXPECT_EQ(late.presentationStart, 1024);
  EXPECT_THAT(late.samples, SizeIs(3)) << "the priming and what is heard";
}

TEST(MovieJoin, LetsALaterPiecesPrimingTakeTheEndOfTheOneBefore) {
  // Each: 1024 of priming, then 2048 that are heard.
  const auto a = makeSource({audio(3)}, 1);
  const auto b = makeSource({audio(3)}, 2);
  ASSERT_EQ(a->movie.duration, MediaTime(2048, 48000));
  const auto joined = join({inARow({a.get(), b.get()})});
  const Track& track = joined->movie.tracks[0];
  EXPECT_EQ(track.presentationStart, 1024);
  EXPECT_THAT(times(track), ElementsAre(0, 1024, 2048, 3072, 4096));
  EXPECT_EQ(joined->movie.duration, MediaTime(4096, 48000));
  std::vector<Bytes> expected = contents(a->file, a->track());
  expected.pop_back();
  for (const Bytes& bytes : contents(b->file, b->track()))
    expected.push_back(bytes);
  EXPECT_EQ(contents(joined->file, track), expected);
}

// A player that puts packets in a row is never off by more than half a packet.
TEST(MovieJoin, TakesAsManyPacketsOfSoundAsFitBest) {
  const auto a = makeSource({audio(9)}, 1);
  for (const std::int64_t length : {5120, 5121, 5632, 5633, 6000, 6143}) {
    JoinTrack track;
    for (std::int64_t i = 0; i < 20; ++i)
      track.pieces.push_back(piece(*a, {i * length, 48000}, {length, 48000}));
    const auto joined = join({track});
    const Track& result = joined->movie.tracks[0];
    EXPECT_EQ(joined->movie.duration, MediaTime(20 * length, 48000)) << length;
    std::int64_t pieceStart = 0;
    for (std::int64_t i = 0; i < std::ssize(result.samples); ++i) {
      const Sample& sample = result.samples[static_cast<std::size_t>(i)];
      if (sample.decodeTime == pieceStart && pieceStart < 20 * length) {
        EXPECT_LE(std::abs(i * 1024 - pieceStart), 512) << length << ": " << pieceStart;
        pieceStart += length;
      }
    }
    EXPECT_EQ(pieceStart, 20 * length) << "every piece begins at its time";
  }
}

TEST(MovieJoin, LetsAPieceShorterThanTheNextOnesPrimingVanish) {
  const auto a = makeSource({audio(9)}, 1);
  const auto b = makeSource({audio(9)}, 2);
  const auto c = makeSource({audio(9)}, 3);
  const auto joined = join({{{piece(*a, {0, 1}, {1900, 48000}), piece(*b, {1900, 48000}, {10, 48000}),
                              piece(*c, {1910, 48000}, {2048, 48000})}}});
  const Track& track = joined->movie.tracks[0];
  EXPECT_THAT(times(track), ElementsAre(0, 1024, 1900, 1910, 2934, 3958));
  EXPECT_EQ(joined->movie.duration, MediaTime(1910 + 2048, 48000));
}

TEST(MovieJoin, LeavesSilenceBetweenPiecesOfSound) {
  const auto a = makeSource({audio(3)}, 1);
  const auto joined = join({{{piece(*a, {0, 1}, {2048, 48000}), piece(*a, {1, 1}, {2048, 48000})}}});
  EXPECT_THAT(durations(joined->movie.tracks[0]), ElementsAre(1024, 1024, 48000 - 2048, 1024, 1024, 1024));
  EXPECT_EQ(joined->movie.duration, MediaTime(48000 + 2048, 48000));
}

TEST(MovieJoin, KeepsReorderedPicturesInOrder) {
  Source source;
  FragmentedMovieWriter writer(source.file, {{TrackKind::video, 30, 64, 48, 1}});
  writer.setDescription(0, videoDescription(64, 48));
  const std::vector<std::int32_t> offsets{1, 2, 0, 1};
  for (std::size_t i = 0; i < offsets.size(); ++i)
    writer.append(0, randomBytes(4, static_cast<std::uint32_t>(i)), static_cast<std::int64_t>(i), offsets[i],
                  i == 0);
  writer.finish(std::vector<std::int64_t>{4});
  source.movie = readMovie(source.file);
  const auto joined = join({inARow({&source, &source})});
  const Track& track = joined->movie.tracks[0];
  EXPECT_EQ(track.presentationStart, 1);
  EXPECT_EQ(joined->movie.duration, MediaTime(8, 30));
  EXPECT_EQ(track.samples.back().duration, 1U);
  std::vector<std::int64_t> shown;
  for (const Sample& sample : track.samples)
    shown.push_back(sample.decodeTime + sample.compositionOffset);
  EXPECT_THAT(shown, ElementsAre(1, 3, 2, 4, 5, 7, 6, 8));
}

TEST(MovieJoin, CopiesSideBySideSamplesAsOneRange) {
  const auto source = makeSource({video(600, 20, 300)}, 0, true, 100);
  const auto joined = join({inARow({source.get()})});
  EXPECT_EQ(joined->file.copies, 3U) << "one for each fragment of the source";

  Source again{joined->file, joined->movie};
  EXPECT_EQ(join({inARow({&again})})->file.copies, 1U);
  EXPECT_EQ(join({inARow({&again, &again, &again})})->file.copies, 3U);
}

TEST(MovieJoin, InterleavesTracksByTheSecond) {
  const auto source = makeSource({video(600, 20, 100), audio(157)}, 0, true, 30);
  const auto joined = join({inARow({source.get()}, 0), inARow({source.get()}, 1)});
  EXPECT_EQ(contents(joined->file, joined->movie.tracks[0]), contents({source.get()}, 0));
  EXPECT_EQ(joined->movie.tracks[1].presentationStart, 1024);
  // At the end of every second of pictures, no later sound has been met in the file.
  const std::vector<Sample>& pictures = joined->movie.tracks[0].samples;
  const std::vector<Sample>& sounds = joined->movie.tracks[1].samples;
  for (const Sample& picture : pictures) {
    for (const Sample& sound : sounds) {
      const MediaTime distance =
          MediaTime(sound.decodeTime - 1024, 48000) - MediaTime(picture.decodeTime, 600);
      EXPECT_FALSE(sound.offset < picture.offset && distance > MediaTime(21, 10));
      EXPECT_FALSE(picture.offset < sound.offset && distance < MediaTime(-21, 10));
    }
  }
}

TEST(MovieJoin, WritesFilesOfMoreThan4GiB) {
  const SparseFile file(std::uint64_t{6} << 30);
  Track track;
  track.kind = TrackKind::video;
  track.timescale = 600;
  track.descriptions = {videoDescription(64, 48)};
  for (std::uint64_t i = 0; i < 3; ++i)
    track.samples.push_back(
        Sample{i * 2'000'000'000, 2'000'000'000, 600, static_cast<std::int64_t>(i) * 600, 0, true, 0});
  SparseFile output;
  writeJoinedMovie(output, {{{{&file, &track, {0, 1}, {3, 1}}}}}, "mp42");
  const Movie movie = readMovie(output);
  ASSERT_THAT(movie.tracks[0].samples, SizeIs(3));
  const std::uint64_t first = movie.tracks[0].samples[0].offset;
  EXPECT_LT(first, 100U);
  EXPECT_EQ(movie.tracks[0].samples[2].offset, first + 4'000'000'000);

  track.samples.push_back(Sample{4'400'000'000, 1'000'000'000, 600, 1800, 0, true, 0});
  SparseFile larger;
  writeJoinedMovie(larger, {{{{&file, &track, {0, 1}, {4, 1}}}}}, "mp42");
  EXPECT_EQ(readMovie(larger).tracks[0].samples[3].offset, first + 6'000'000'000) << "beyond 32 bits";
}

TEST(MovieJoin, KeepsTheMatrixOfTheFirstPiece) {
  const auto source = makeSource({video(600, 20, 2)});
  Track turned = source->track();
  turned.matrix = {0, 0x10000, 0, -0x10000, 0, 0, 48 << 16, 0, 0x40000000};
  const auto joined =
      join({{{{&source->file, &turned, {0, 1}, {40, 600}}, piece(*source, {40, 600}, {40, 600})}}});
  EXPECT_EQ(joined->movie.tracks[0].matrix, turned.matrix);
}

TEST(MovieJoin, SaysItsBrand) {
  const auto source = makeSource({audio(3)});
  for (const std::string brand : {"mp42", "M4A "}) {
    MemoryFile output;
    writeJoinedMovie(output, {inARow({source.get()})}, brand);
    const std::string head(reinterpret_cast<const char*>(output.bytes.data()), 12);
    EXPECT_EQ(head.substr(4), "ftyp" + brand);
    EXPECT_TRUE(output.changes.back().isSync) << "durable";
  }
}

TEST(MovieJoin, RefusesWhatCannotBeJoined) {
  const auto source = makeSource({video(600, 20, 2), audio(3)});
  const auto error = [](const std::vector<JoinTrack>& tracks, const std::string& brand = "mp42") {
    MemoryFile output;
    const auto found = containerError([&] { writeJoinedMovie(output, tracks, brand); });
    EXPECT_THAT(output.bytes, SizeIs(0)) << "refused before anything is written";
    return found;
  };
  const MediaTime zero = MediaTime::zero();
  const JoinPiece good = piece(*source, zero, {40, 600});
  const auto changed = [&](auto change) {
    JoinPiece bent = good;
    change(bent);
    return error({{{bent}}});
  };
  using P = JoinPiece;
  const auto unsupported = ContainerError::unsupported;
  EXPECT_EQ(error({}), unsupported);
  EXPECT_EQ(error({{}}), unsupported);
  EXPECT_EQ(error({{{good}}}, "mp4"), unsupported);
  EXPECT_EQ(changed([](P& p) { p.file = nullptr; }), unsupported);
  EXPECT_EQ(changed([](P& p) { p.track = nullptr; }), unsupported);
  EXPECT_EQ(changed([](P& p) { p.start = {}; }), unsupported);
  EXPECT_EQ(changed([](P& p) { p.start = {-1, 600}; }), unsupported);
  EXPECT_EQ(changed([](P& p) { p.duration = {}; }), unsupported);
  EXPECT_EQ(changed([](P& p) { p.duration = {0, 1}; }), unsupported);
  EXPECT_EQ(error({{{piece(*source, {1, 1}, {1, 1}), good}}}), unsupported) << "out of order";
  EXPECT_EQ(error({{{good, piece(*source, {1, 1}, {1, 1}, 1)}}}), unsupported) << "two kinds";
  Track other = source->track();
  other.kind = TrackKind::other;
  EXPECT_EQ(changed([&](P& p) { p.track = &other; }), unsupported);
  Track empty = source->track();
  empty.samples.clear();
  EXPECT_EQ(changed([&](P& p) { p.track = &empty; }), ContainerError::damaged);
  EXPECT_EQ(changed([](P& p) { p.duration = {100'000'000, 1}; }), ContainerError::tooLarge);
}

TEST(MovieJoin, PassesOnEveryFailureOfTheFile) {
  const auto source = makeSource({video(600, 20, 20)});
  const std::vector<std::pair<FileOperation, std::size_t>> operations{
      {FileOperation::write, 1}, {FileOperation::write, 2}, {FileOperation::copy, 1},
      {FileOperation::copy, 2},  {FileOperation::sync, 1},
  };
  for (const auto& [operation, n] : operations) {
    TemporaryDirectory directory;
    FaultyFileSystem files(machineFileSystem());
    const auto input = files.open(directory / "in.mp4", OpenMode::createExclusive);
    input->write(0, source->file.bytes);
    const auto output = files.open(directory / "out.mp4", OpenMode::createExclusive);
    files.failNth(operation, n, ENOSPC);
    try {
      writeJoinedMovie(*output, {{{{input.get(), &source->track(), {0, 1}, {400, 600}}}}}, "mp42");
      ADD_FAILURE() << static_cast<int>(operation) << " " << n;
    } catch (const FileFailure& failure) {
      EXPECT_EQ(failure.operation(), operation);
      EXPECT_EQ(failure.errorNumber(), ENOSPC);
    }
  }
}

} // namespace
} // namespace tessarin::container
