#include "MovieCutTesting.hpp"

#include "support/SmallVolume.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <stop_token>

namespace tessarin {
namespace {

class MovieCutFailures : public ::testing::Test {
 protected:
  MovieExport movieOf(const std::vector<Cut>& cuts = {{333, 1900, 1}, {40, 800, 1}}) {
    if (source.empty())
      source = record(rig, "s.mp4", {.pictures = 60, .lanes = {tone(440)}});
    return cutOf(rig, source, cuts, 1);
  }
  // Names in the directory of the rig that are neither sources nor asked for.
  std::vector<std::string> leftBehind() const {
    auto names = machineFileSystem().list(rig.directory().path(), 100).value();
    std::erase_if(names, [](const std::string& name) { return name.starts_with("s."); });
    return names;
  }

  MovieRig rig;
  std::string source;
};

TEST_F(MovieCutFailures, LeaveNothingWhicheverOperationFails) {
  const MovieExport movie = movieOf();
  rig.files.clearLog();
  ASSERT_EQ(rig.run(movie), std::nullopt);
  for (const FileOperation operation : {FileOperation::open, FileOperation::read, FileOperation::write,
                                        FileOperation::copy, FileOperation::sync, FileOperation::remove}) {
    // The directory is made durable where the volume can do it.
    const std::size_t count = operation == FileOperation::sync ? 1 : rig.files.count(operation);
    for (std::size_t n = 1; n <= count; n += 1 + count / 20) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(operation) << " " << n);
      const MovieExport again = movieOf();
      rig.files.failNth(operation, n, EIO);
      rig.files.clearLog();
      const auto failure = rig.run(again);
      rig.files.clearFaults();
      const bool isOfSource =
          operation == FileOperation::read || (operation == FileOperation::open && n == 1);
      EXPECT_EQ(failure, isOfSource ? MovieEditingError::unreadable : MovieEditingError::notWritten);
      EXPECT_TRUE(leftBehind().empty());
    }
    const MovieExport last = movieOf();
    rig.files.clearLog();
    ASSERT_EQ(rig.run(last), std::nullopt);
  }
}

TEST_F(MovieCutFailures, LeaveNothingOnAFullDisk) {
  MovieExport movie = movieOf();
  const SmallVolume volume(std::uint64_t{1} << 20);
  movie.outputPath = volume.path() + "/cut.mp4";
  for (const std::uint64_t room : {4096, 12288, 24576}) {
    volume.setFreeBytes(room);
    EXPECT_EQ(rig.run(movie), MovieEditingError::notWritten) << room;
    EXPECT_TRUE(machineFileSystem().list(volume.path(), 10).value().empty()) << room;
  }
  volume.setFreeBytes(500'000);
  EXPECT_EQ(rig.run(movie), std::nullopt);
}

TEST_F(MovieCutFailures, RefuseWhatIsThereAlready) {
  const MovieExport movie = movieOf();
  std::ofstream(movie.outputPath) << "mine";
  EXPECT_EQ(rig.run(movie), MovieEditingError::notWritten);
  EXPECT_EQ(rig.directory().read("cut.mp4"), "mine");
}

TEST_F(MovieCutFailures, EndWhenTheyAreAskedTo) {
  int told = 0;
  for (int at = 0; at < 40; ++at) {
    const MovieExport movie = movieOf();
    std::stop_source stop;
    int calls = 0;
    int last = -1;
    const auto failure = editingFailureOf([&] {
      rig.exporter.run(
          movie,
          [&](int permille) {
            EXPECT_GT(permille, last);
            last = permille;
            if (calls++ == at)
              stop.request_stop();
          },
          stop.get_token());
    });
    told = std::max(told, calls);
    // The last one comes when all is done.
    if (last == 1000) {
      EXPECT_EQ(failure, std::nullopt);
    } else {
      EXPECT_EQ(failure, MovieEditingError::cancelled);
      EXPECT_TRUE(leftBehind().empty());
    }
  }
  EXPECT_GE(told, 10);
}

TEST_F(MovieCutFailures, NameASourceThatIsTornOrChangesUnderWay) {
  MovieExport movie = movieOf();
  // Cut off behind the index was read: while the first bytes of the output are written.
  const std::string whole = rig.directory().read("s.mp4");
  for (const bool isTorn : {true, false}) {
    std::ofstream(source, std::ios::binary) << whole;
    movie = movieOf();
    bool isDone = false;
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation != FileOperation::copy || isDone)
        return;
      isDone = true;
      if (isTorn)
        EXPECT_EQ(::truncate(source.c_str(), 20000), 0);
      else
        std::ofstream(source, std::ios::binary | std::ios::in) << "x";
    });
    EXPECT_EQ(rig.run(movie), MovieEditingError::unreadable) << isTorn;
    rig.files.setObserver({});
    EXPECT_TRUE(leftBehind().empty());
  }
}

TEST_F(MovieCutFailures, NameWhatCannotBeCut) {
  MovieExport movie = movieOf();
  movie.composition.segments[0].output.duration = MediaTime::milliseconds(700); // another speed
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  movie = movieOf();
  movie.composition.audioLanes[0].volumes[1] = 0.5F;
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  movie = movieOf();
  movie.composition.audioLanes[0].sourceTrackIndex = 1;
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  movie = movieOf();
  movie.composition.segments.clear();
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  EXPECT_TRUE(leftBehind().empty());
}

} // namespace
} // namespace tessarin
