#include "container/MovieJoinTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

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

TEST(MovieJoin, KeepsTheMatrixOfTheFirstPiece) {
  const auto source = makeSource({video(600, 20, 2)});
  Track turned = source->track();
  turned.matrix = {0, 0x10000, 0, -0x10000, 0, 0, 48 << 16, 0, 0x40000000};
  const auto joined =
      join({{{{&source->file, &turned, {0, 1}, {40, 600}}, piece(*source, {40, 600}, {40, 600})}}});
  EXPECT_EQ(joined->movie.tracks[0].matrix, turned.matrix);
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

} // namespace
} // namespace tessarin::container
