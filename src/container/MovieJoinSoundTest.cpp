#include "container/MovieJoinTesting.hpp"

#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::ElementsAre;

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

} // namespace
} // namespace tessarin::container
