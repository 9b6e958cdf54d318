#include "container/MovieSketch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(FragmentBox, ReadsRunsByTheirFlagsAndTheDefaultsOfTrackAndFragment) {
  FragmentSketch fragment;
  fragment.headFlags = 0x2003a;
  fragment.head = {2, 25, 6, 0};
  fragment.tfdt = [](BoxWriter& w) { w.fullBox(fourCC("tfdt"), 0, 0, [&] { w.u32(1000); }); };
  fragment.runs = {run(0x1, 2, {150}), run(0x4, 2, {0x10000}), run(0x701, 1, {200, 30, 7, 0x10000}),
                   run(0xa00, 2, {4, 10, 5, 0xffff'fff6}, 1)};
  const auto [file, at] = fragmentedFile({fragment});
  const Movie movie = readMovie(file);
  EXPECT_TRUE(movie.isFragmented);
  EXPECT_THAT(
      movie.tracks[0].samples,
      ElementsAre(Sample{at + 150, 6, 25, 1000, 0, true, 1}, Sample{at + 156, 6, 25, 1025, 0, true, 1},
                  Sample{at + 162, 6, 25, 1050, 0, false, 1}, Sample{at + 168, 6, 25, 1075, 0, true, 1},
                  Sample{at + 200, 7, 30, 1100, 0, false, 1}, Sample{at + 207, 4, 25, 1130, 10, true, 1},
                  Sample{at + 211, 5, 25, 1155, -10, true, 1}));
  EXPECT_EQ(movie.tracks[0].start, MediaTime(1000, 600));
}

TEST(FragmentBox, CountsDataFromAnOffsetTheFragmentOrWhatWentBefore) {
  FragmentSketch based;
  based.headFlags = 0x1;
  based.head = {0, 60};
  based.runs = {run(0x1, 1, {5})};
  FragmentSketch bare;
  bare.headFlags = 0;
  bare.runs = {run(0x1, 2, {150})};
  bare.runsOfSecondPart = {run(0x0, 1, {}), run(0x1, 1, {6})};
  const MemoryFile file = fragmentedFile({based, bare}).file;
  const std::uint64_t second = fragmentedFile({based}).file.bytes.size();
  const Movie movie = readMovie(file);
  EXPECT_THAT(offsets(movie), ElementsAre(65, second + 150, second + 154, second + 158, second + 164));
  EXPECT_EQ(movie.tracks[0].samples[1].decodeTime, 20) << "goes on where the last fragment ended";
}

TEST(FragmentBox, ReadsWideDecodeTimesAndRefusesThoseThatGoBack) {
  const auto at = [](std::uint64_t time) {
    FragmentSketch fragment;
    fragment.tfdt = [=](BoxWriter& w) { w.fullBox(fourCC("tfdt"), 1, 0, [&] { w.u64(time); }); };
    fragment.runs = {run(0x1, 2, {90})};
    return fragment;
  };
  constexpr std::uint64_t late = (std::uint64_t{1} << 56) - 41;
  EXPECT_EQ(readMovie(fragmentedFile({at(late)}).file).tracks[0].samples[1].decodeTime,
            static_cast<std::int64_t>(late) + 20);
  EXPECT_EQ(readingError(fragmentedFile({at(late + 1)}).file), ContainerError::damaged);
  EXPECT_EQ(readingError(fragmentedFile({at(~std::uint64_t{0})}).file), ContainerError::damaged);
  EXPECT_THAT(readMovie(fragmentedFile({at(100), at(120), at(500)}).file).tracks[0].samples, SizeIs(6));
  EXPECT_EQ(readingError(fragmentedFile({at(100), at(119), at(500)}).file), ContainerError::damaged);
}

TEST(FragmentBox, RefusesFragmentsThatCannotBe) {
  const auto with = [](const std::function<void(FragmentSketch&)>& change) {
    FragmentSketch fragment;
    fragment.runs = {run(0x1, 1, {90})};
    change(fragment);
    return fragmentedFile({fragment}).file;
  };
  const auto expectError = [&](const char* name, const std::function<void(FragmentSketch&)>& change,
                               ContainerError error = ContainerError::damaged) {
    EXPECT_EQ(readingError(with(change)), error) << name;
  };
  EXPECT_EQ(readingError(with([](FragmentSketch&) {})), std::nullopt);
  expectError("unknown track", [](FragmentSketch& f) { f.id = 8; });
  expectError("description zero", [](FragmentSketch& f) { f.headFlags |= 2, f.head = {0}; });
  expectError("description three of two", [](FragmentSketch& f) { f.headFlags |= 2, f.head = {3}; });
  expectError("data behind the media", [](FragmentSketch& f) { f.runs = {run(0x1, 11, {90})}; });
  expectError("data before the file", [](FragmentSketch& f) { f.runs = {run(0x1, 1, {0x8000'0000})}; });
  expectError("a base beyond 62 bits", [](FragmentSketch& f) { f.headFlags = 1, f.head = {0x4000'0001, 0}; });
  expectError("samples of no size that nothing backs", [](FragmentSketch& f) {
    f.headFlags |= 0x10, f.head = {0}, f.runs = {run(0x1, 1'000'000, {90})};
  });
  expectError("samples that the file cannot hold",
              [](FragmentSketch& f) { f.runs = {run(0x1, 20'000'000, {90})}; });
  expectError(
      "samples beyond the bound", [](FragmentSketch& f) { f.runs = {run(0x1, 20'000'001, {90})}; },
      ContainerError::tooLarge);
  expectError("entries cut off", [](FragmentSketch& f) { f.runs = {run(0x201, 2, {90, 1})}; });
  expectError("endless entries", [](FragmentSketch& f) { f.runs = {run(0xf01, 0xffff'ffff, {90, 1})}; });
  expectError("offset beyond 31 bits", [](FragmentSketch& f) {
    f.runs = {run(0x801, 1, {90, 0x8000'0000})};
  });
  expectError(
      "a run of the future", [](FragmentSketch& f) { f.runs = {run(0x1, 1, {90}, 2)}; },
      ContainerError::unsupported);
}

TEST(FragmentBox, RefusesFragmentsThatNothingAnnounces) {
  BoxWriter w;
  Sketch sketch = Sketch::fragmented();
  sketch.mvex = nullptr;
  sketch.write(w);
  FragmentSketch fragment;
  fragment.runs = {run(0x1, 1, {90})};
  fragment.write(w);
  EXPECT_EQ(readingError(MemoryFile(w.bytes())), ContainerError::damaged);
  BoxWriter first;
  fragment.write(first);
  Sketch::fragmented().write(first);
  EXPECT_EQ(readingError(MemoryFile(first.bytes())), ContainerError::damaged);
}

TEST(FragmentBox, RefusesADamagedFragmentUnlessItIsTheTornEnd) {
  FragmentSketch good;
  good.runs = {run(0x1, 1, {90})};
  FragmentSketch bad = good;
  bad.id = 8;
  EXPECT_EQ(readingError(fragmentedFile({good, bad, good}).file), ContainerError::damaged);
  const MemoryFile torn = fragmentedFile({good, good, bad}).file;
  const Movie movie = readMovie(torn);
  EXPECT_THAT(movie.tracks[0].samples, SizeIs(2));
  EXPECT_EQ(movie.usableBytes, fragmentedFile({good, good}).file.bytes.size());
}

} // namespace
} // namespace tessarin::container
