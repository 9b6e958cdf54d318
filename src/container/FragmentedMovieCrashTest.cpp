#include "container/GrowingMovieTesting.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::SizeIs;

TEST(FragmentedMovieCrash, LosesAtMostOneFragmentHoweverItIsTornWhileItGrows) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  appendAll(*writer, pictures(8, 1500, 3, 5));
  const std::size_t headSize = file.changes[0].bytes.size();
  const std::size_t firstEnd = headSize + file.changes[1].bytes.size();
  const std::size_t secondEnd = firstEnd + file.changes[3].bytes.size();
  ASSERT_EQ(secondEnd, file.bytes.size());
  for (std::size_t size = 0; size <= secondEnd; ++size) {
    const MemoryFile torn(Bytes(file.bytes.begin(), file.bytes.begin() + static_cast<std::ptrdiff_t>(size)));
    if (size < firstEnd) {
      EXPECT_EQ(readingError(torn), ContainerError::notAMovie) << size;
      continue;
    }
    const Movie movie = readMovie(torn);
    EXPECT_TRUE(movie.isFragmented) << size;
    EXPECT_THAT(movie.tracks[0].samples, SizeIs(size < secondEnd ? 3 : 6)) << size;
    EXPECT_EQ(movie.usableBytes, size < secondEnd ? firstEnd : secondEnd) << size;
  }
}

TEST(FragmentedMovieCrash, LosesAtMostTheLastFragmentHoweverItsFinishIsCut) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  appendAll(*writer, pictures(8, 1500, 3, 5));
  const Bytes grown = file.bytes;
  file.changes.clear();
  finish(*writer, {8 * 1500});
  const std::vector<MemoryFile::Change> changes = file.changes;
  ASSERT_THAT(changes, SizeIs(5));

  MemoryFile replayed(grown);
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const bool isHeader = i == 3; // lies within one sector, so it is there or not
    for (std::size_t part = 0; part < changes[i].bytes.size() && !isHeader; ++part) {
      MemoryFile torn = replayed;
      torn.write(changes[i].offset, std::span(changes[i].bytes).first(part));
      const Movie movie = readMovie(torn);
      EXPECT_TRUE(movie.isFragmented);
      EXPECT_THAT(movie.tracks[0].samples, SizeIs(i == 0 ? 6 : 8)) << i << " " << part;
      EXPECT_EQ(movie.duration, MediaTime((i == 0 ? 6 : 8) * 1500, videoScale)) << i << " " << part;
    }
    if (!changes[i].isSync)
      replayed.write(changes[i].offset, changes[i].bytes);
    const Movie movie = readMovie(replayed);
    EXPECT_EQ(movie.isFragmented, i < 3) << i;
    EXPECT_THAT(movie.tracks[0].samples, SizeIs(8)) << i;
    EXPECT_EQ(movie.duration, MediaTime(8 * 1500, videoScale)) << i;
  }
  EXPECT_EQ(replayed.bytes, file.bytes);
}

TEST(FragmentedMovieCrash, TakesZerosThatACrashLeftBehindForTheTornEnd) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  appendAll(*writer, pictures(8, 1500, 3, 5));
  const std::size_t whole = file.bytes.size();
  file.bytes.resize(whole + 4096);
  const Movie movie = readMovie(file);
  EXPECT_EQ(movie.usableBytes, whole);
  EXPECT_THAT(movie.tracks[0].samples, SizeIs(6));
}

// Runs a whole recording until the file layer refuses, and yields the failure's number.
int recordUntilFailure(FragmentedMovieWriter& writer, const std::vector<Appended>& samples) {
  try {
    appendAll(writer, samples);
    finish(writer, {static_cast<std::int64_t>(samples.size()) * 1500});
    return 0;
  } catch (const FileFailure& failure) {
    return failure.errorNumber();
  }
}

TEST(FragmentedMovieCrash, ReportsTheFailedWriteWhenItsTornEndCannotBeCutOffEither) {
  const std::vector<Appended> samples = pictures(8, 1500, 3, 5);
  TemporaryDirectory directory;
  FaultyFileSystem files(machineFileSystem());
  const auto file = files.open(directory / "movie.mp4", OpenMode::createExclusive);
  files.inject({FileOperation::write, "", 2, 1, ENOSPC, 13});
  files.failAlways(FileOperation::truncate, EIO);
  const auto writer = videoWriter(*file);
  EXPECT_EQ(recordUntilFailure(*writer, samples), ENOSPC);
  const Movie movie = readMovie(*file);
  EXPECT_THAT(movie.tracks[0].samples, SizeIs(3));
  EXPECT_EQ(movie.usableBytes + 13, static_cast<std::uint64_t>(file->info().sizeBytes));
}

TEST(FragmentedMovieCrash, StaysFailedAndReadableWhicheverWriteOrSyncFails) {
  const std::vector<Appended> samples = pictures(8, 1500, 3, 5);
  constexpr std::size_t writes = 6; // head, two fragments, the last one, index, header
  constexpr std::size_t syncs = 4;
  const auto check = [&](const FaultyFileSystem::Fault& fault) {
    SCOPED_TRACE(testing::Message() << "operation " << static_cast<int>(fault.operation) << " after "
                                    << fault.skip);
    TemporaryDirectory directory;
    FaultyFileSystem files(machineFileSystem());
    const auto file = files.open(directory / "movie.mp4", OpenMode::createExclusive);
    files.inject(fault);
    const auto writer = videoWriter(*file);
    EXPECT_EQ(recordUntilFailure(*writer, samples), ENOSPC);
    const auto fails = [](auto call) {
      try {
        call();
        return 0;
      } catch (const FileFailure& failure) {
        return failure.errorNumber();
      }
    };
    EXPECT_EQ(fails([&] { writer->append(0, samples[0].data, 90000, 0, true); }), ENOSPC);
    EXPECT_EQ(fails([&] { writer->flushFragment(); }), ENOSPC);
    EXPECT_EQ(fails([&] { finish(*writer, {90000}); }), ENOSPC);

    const bool isWrite = fault.operation == FileOperation::write;
    if (isWrite && fault.skip < 2) {
      EXPECT_EQ(file->info().sizeBytes == 0, fault.skip == 0) << "the head stays, a part of it does not";
      EXPECT_EQ(readingError(*file), ContainerError::notAMovie);
      return;
    }
    const std::vector<std::size_t> afterWrite{0, 0, 3, 6, 8, 8};
    const std::vector<std::size_t> afterSync{3, 6, 8, 8};
    const Movie movie = readMovie(*file);
    EXPECT_THAT(movie.tracks[0].samples, SizeIs((isWrite ? afterWrite : afterSync)[fault.skip]));
    EXPECT_EQ(movie.usableBytes, static_cast<std::uint64_t>(file->info().sizeBytes)) << "a torn end is left";
  };
  for (std::size_t n = 0; n < writes; ++n) {
    check({FileOperation::write, "", n, 1, ENOSPC, std::nullopt});
    check({FileOperation::write, "", n, 1, ENOSPC, 13});
  }
  for (std::size_t n = 0; n < syncs; ++n)
    check({FileOperation::sync, "", n, 1, ENOSPC, std::nullopt});

  TemporaryDirectory directory;
  FaultyFileSystem files(machineFileSystem());
  const auto file = files.open(directory / "movie.mp4", OpenMode::createExclusive);
  EXPECT_EQ(recordUntilFailure(*videoWriter(*file), samples), 0);
  EXPECT_EQ(files.count(FileOperation::write), writes);
  EXPECT_EQ(files.count(FileOperation::sync), syncs);
}

} // namespace
} // namespace tessarin::container
