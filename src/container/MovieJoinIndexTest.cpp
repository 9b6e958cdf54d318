#include "container/MovieJoinTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace tessarin::container {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

// The types of the boxes of a file, in order.
std::vector<std::string> boxTypes(const OpenFile& file) {
  std::vector<std::string> types;
  for (std::uint64_t offset = 0;;) {
    Bytes head(16);
    if (file.read(offset, head) < 8)
      return types;
    ByteCursor cursor(head);
    const std::uint64_t size = cursor.u32();
    types.emplace_back(reinterpret_cast<const char*>(head.data()) + 4, 4);
    cursor.skip(4);
    offset += size == 1 ? cursor.u64() : size;
  }
}

TEST(MovieJoin, PutsTheIndexAheadOfTheMediaWhereThatIsAskedFor) {
  const auto source = makeSource({video(600, 20, 100), audio(157)}, 0, true, 30);
  const std::vector<JoinTrack> tracks{inARow({source.get(), source.get()}, 0),
                                      inARow({source.get(), source.get()}, 1)};
  const auto last = join(tracks);
  EXPECT_THAT(boxTypes(last->file), ElementsAre("ftyp", "mdat", "moov"));
  MemoryFile first;
  writeJoinedMovie(first, tracks, "mp42", {.index = IndexPlace::first, .progress = {}});
  EXPECT_THAT(boxTypes(first), ElementsAre("ftyp", "moov", "mdat"));
  EXPECT_TRUE(first.changes.back().isSync) << "durable";
  EXPECT_EQ(first.bytes.size(), last->file.bytes.size());

  const Movie movie = readMovie(first);
  ASSERT_THAT(movie.tracks, SizeIs(2));
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(contents(first, movie.tracks[i]), contents(last->file, last->movie.tracks[i]));
    EXPECT_EQ(times(movie.tracks[i]), times(last->movie.tracks[i]));
    EXPECT_EQ(movie.tracks[i].presentationStart, last->movie.tracks[i].presentationStart);
  }
}

// The index itself moves the media, and may thereby move one beyond what a narrow table of offsets can tell.
TEST(MovieJoin, PutsTheIndexOfMoreThan4GiBAhead) {
  const SparseFile file(std::uint64_t{6} << 30);
  const auto joinedWith = [&](std::uint64_t firstSize) {
    Track track;
    track.kind = TrackKind::video;
    track.timescale = 600;
    track.descriptions = {videoDescription(64, 48)};
    track.samples.push_back(Sample{0, static_cast<std::uint32_t>(firstSize), 600, 0, 0, true, 0});
    track.samples.push_back(Sample{firstSize, 5, 600, 600, 0, false, 0});
    auto output = std::make_unique<SparseFile>();
    writeJoinedMovie(*output, {{{{&file, &track, {0, 1}, {2, 1}}}}}, "mp42",
                     {.index = IndexPlace::first, .progress = {}});
    const Movie movie = readMovie(*output);
    return std::pair(movie.tracks[0].samples[0].offset, movie.tracks[0].samples[1].offset);
  };
  const auto [narrowFirst, narrowSecond] = joinedWith(4'000'000'000);
  EXPECT_EQ(narrowSecond, narrowFirst + 4'000'000'000);
  // The greatest size with which the second offset still fits, and one more.
  const std::uint64_t fitting = UINT32_MAX - narrowFirst;
  EXPECT_EQ(joinedWith(fitting), std::pair(narrowFirst, std::uint64_t{UINT32_MAX}));
  const std::uint64_t wideFirst = narrowFirst + 2 * 4; // two chunks
  EXPECT_EQ(joinedWith(fitting + 1), std::pair(wideFirst, wideFirst + fitting + 1));
}

TEST(MovieJoin, TellsItsProgress) {
  const auto source = makeSource({video(600, 20, 300)}, 0, true, 100);
  std::vector<std::uint64_t> told;
  std::uint64_t all = 0;
  MemoryFile output;
  writeJoinedMovie(output, {inARow({source.get()})}, "mp42",
                   {.index = IndexPlace::last, .progress = [&](std::uint64_t copied, std::uint64_t of) {
                      told.push_back(copied);
                      all = of;
                    }});
  ASSERT_THAT(told, SizeIs(3)) << "a fragment of the source each";
  EXPECT_LT(told[0], told[1]);
  EXPECT_EQ(told[2], all);

  struct Stop {};
  MemoryFile stopped;
  EXPECT_THROW(writeJoinedMovie(stopped, {inARow({source.get()})}, "mp42",
                                {.index = IndexPlace::first,
                                 .progress = [](std::uint64_t, std::uint64_t) { throw Stop{}; }}),
               Stop);
}

TEST(MovieJoin, TakesEveryPacketOfAPieceThatKeepsThem) {
  const auto a = makeSource({audio(9)}, 1);
  // The last packet of the first piece begins 100 frames ahead of those of the second one: too little, for
  // players that put packets in a row.
  for (const bool keeps : {false, true}) {
    JoinTrack track;
    track.pieces.push_back(piece(*a, {0, 1}, {5120 + 100, 48000}));
    track.pieces.push_back(piece(*a, {5220, 48000}, {5120, 48000}));
    for (JoinPiece& each : track.pieces)
      each.keepsPackets = keeps;
    const auto joined = join({track});
    EXPECT_THAT(joined->movie.tracks[0].samples, SizeIs(keeps ? 12 : 11));
    EXPECT_EQ(joined->movie.duration, MediaTime(10340, 48000));
  }
}

} // namespace
} // namespace tessarin::container
