// A segment's writer with the real module on a disk that fails at each of the writes and syncs of a growing
// file: what is told, what stays readable, and that the end of the segment comes.

#include "backends/posix/ModuleMediaFileWriterFactory.hpp"
#include "container/Movie.hpp"
#include "support/CameraCompositeRig.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
constexpr auto limit = 20s; // for what is soon there on any machine

struct Row {
  const char* name;
  FileOperation operation;
  int errorNumber;
  bool lasts;                                  // from then on
  std::optional<std::size_t> shortenedTo = {}; // bytes that still get through
};
void PrintTo(const Row& row, std::ostream* stream) {
  *stream << row.name;
}

// A segment of the screen and a camera that grows over three fragments and its end.
class SegmentWriterFaults : public CameraCompositeTest, public ::testing::WithParamInterface<Row> {
 protected:
  void SetUp() override {
    makeQueue = makeSourceQueue = makeThreadQueue;
    mediaFactory = &module;
  }
  void TearDown() override { destroy(); }

  // One picture each tenth of a second, each as soon as the file has taken the one before, or will take none
  // any more.
  void record(int pictures) {
    std::atomic<int> taken = 0;
    whenFrameIsTold = [&taken] { ++taken; };
    for (int i = 0; i < pictures; ++i) {
      deliver(static_cast<std::uint8_t>(i), i * 100ms);
      const auto deadline = std::chrono::steady_clock::now() + limit;
      while (taken <= i && !hasFailed() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(200us);
    }
    recorder->detach(*stream);
    whenFrameIsTold = nullptr;
  }

  bool hasFailed() {
    return errorOf([this] { recorder->waitUntilStarted(limit); }).has_value();
  }

  // Records a segment into a file of its own and ends it. Yields the error of the end; fails when that does
  // not come.
  std::optional<NativeServiceError> segment() {
    outputPath = directory / ("segment-" + std::to_string(count_++) + ".mp4");
    lines.clear();
    failuresTold = 0;
    makeAttached();
    record(pictureCount);
    auto ended = std::async(std::launch::async, [this] { return errorOf([this] { recorder->finish(); }); });
    if (ended.wait_for(limit) != std::future_status::ready)
      throw std::runtime_error("the segment does not end");
    const std::optional<NativeServiceError> error = ended.get();
    recorder.reset();
    return error;
  }

  container::Movie movie() const {
    return container::readMovie(*machineFileSystem().open(outputPath, OpenMode::read));
  }

  // Of both tracks; 0 while there is no file, or none that can be read.
  std::size_t readableSamples() const {
    try {
      std::size_t count = 0;
      for (const container::Track& track : movie().tracks)
        count += track.samples.size();
      return count;
    } catch (const std::exception&) {
      return 0;
    }
  }
  bool hasFile() const { return machineFileSystem().info(outputPath).has_value(); }

  static constexpr int pictureCount = 125; // ends behind the fragments at 1 s and 11 s

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ModuleLoader loader{{TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}};
  ModuleMediaFileWriterFactory module{loader, files};

 private:
  int count_ = 0;
};

TEST_P(SegmentWriterFaults, WhatWasWholeStaysReadableAndTheEndTellsOfIt) {
  const Row& row = GetParam();
  useCamera(64, 48);
  while (!camera->latestFrame())
    std::this_thread::yield();
  ASSERT_EQ(segment(), std::nullopt) << ::testing::PrintToString(lines);
  EXPECT_FALSE(movie().isFragmented);
  const std::size_t count = files.count(row.operation);
  ASSERT_GE(count, 3u);

  for (std::size_t n = 1; n <= count; ++n) {
    SCOPED_TRACE(n);
    files.clearFaults();
    files.clearLog();
    files.inject({.operation = row.operation,
                  .skip = n - 1,
                  .times = row.lasts ? FaultyFileSystem::always : 1,
                  .errorNumber = row.errorNumber,
                  .shortenedTo = row.shortenedTo});
    std::vector<std::size_t> wholeAt; // samples that could be read before each operation of the kind
    std::mutex lock;
    files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation != row.operation)
        return;
      const std::lock_guard guard(lock);
      wholeAt.push_back(readableSamples());
    });
    const std::optional<NativeServiceError> error = segment();
    files.setObserver(nullptr);
    EXPECT_EQ(error, cameraUnavailable) << "who is blamed for all failures where there is a camera";
    EXPECT_EQ(failuresTold > 0, std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
                return line.find("recording-writer-failed") != std::string::npos;
              }));
    ASSERT_GE(wholeAt.size(), n);
    EXPECT_GE(readableSamples(), wholeAt[n - 1]) << "nothing that was whole is lost";
    EXPECT_TRUE(hasFile()) << "the file stays for what can be read of it";
  }
}

INSTANTIATE_TEST_SUITE_P(Disk, SegmentWriterFaults,
                         ::testing::Values(Row{"WriteFailsOnce", FileOperation::write, EIO, false},
                                           Row{"DiskIsFull", FileOperation::write, ENOSPC, true},
                                           Row{"WriteIsCutShort", FileOperation::write, ENOSPC, false, 70},
                                           Row{"WriteIsCutWithinABox", FileOperation::write, ENOSPC, false,
                                               8},
                                           Row{"DiskIsFullWithinABox", FileOperation::write, ENOSPC, true, 8},
                                           Row{"SyncFailsOnce", FileOperation::sync, EIO, false},
                                           Row{"SyncFailsAlways", FileOperation::sync, EIO, true}),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace
} // namespace tessarin
