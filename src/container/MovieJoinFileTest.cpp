#include "container/MovieJoinTesting.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::SizeIs;

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
