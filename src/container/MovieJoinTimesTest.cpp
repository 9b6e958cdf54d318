#include "container/MovieJoinTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

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

} // namespace
} // namespace tessarin::container
