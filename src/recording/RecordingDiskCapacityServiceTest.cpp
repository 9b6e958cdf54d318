#include "recording/RecordingDiskCapacityService.hpp"

#include "model/Errors.hpp"

#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

namespace tessarin {
namespace {

class RecordingDiskCapacityServiceTest : public testing::Test {
 protected:
  std::uint64_t available(const std::optional<std::string>& caches) {
    return RecordingDiskCapacityService(files, caches, temporary.path()).availableBytes();
  }
  // The path whose volume was asked last.
  std::string asked() const {
    for (auto events = files.log(); !events.empty(); events.pop_back())
      if (events.back().operation == FileOperation::space)
        return events.back().path;
    return "";
  }

  TemporaryDirectory directory;
  TemporaryDirectory temporary;
  FaultyFileSystem files{machineFileSystem()};
};

TEST_F(RecordingDiskCapacityServiceTest, AsksTheVolumeOfTheCachesDirectory) {
  files.setAvailableBytes(123456789012);
  EXPECT_EQ(available(directory.path()), 123456789012U);
  EXPECT_EQ(asked(), directory.path());
}

TEST_F(RecordingDiskCapacityServiceTest, ADirectoryThatIsNotThereYetWillBeOnTheVolumeAbove) {
  files.setAvailableBytes(5);
  EXPECT_EQ(available(directory / "a/b/c"), 5U);
  EXPECT_EQ(asked(), directory.path());
  EXPECT_EQ(available(directory / "a//b/"), 5U);
  EXPECT_EQ(asked(), directory.path());
  EXPECT_EQ(available("/no-such-directory/a"), 5U);
  EXPECT_EQ(asked(), "/");
  EXPECT_FALSE(files.info(directory / "a"));
}

TEST_F(RecordingDiskCapacityServiceTest, WithoutACachesDirectoryTheTemporaryOneCounts) {
  files.setAvailableBytes(7);
  EXPECT_EQ(available(std::nullopt), 7U);
  EXPECT_EQ(asked(), temporary.path());
}

TEST_F(RecordingDiskCapacityServiceTest, WhatCountsBelowZeroIsNothing) {
  constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
  files.setAvailableBytes(largest);
  EXPECT_EQ(available(directory.path()), largest);
  files.setAvailableBytes(largest + 1);
  EXPECT_EQ(available(directory.path()), 0U);
  files.setAvailableBytes(std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(available(directory.path()), 0U);
  files.setAvailableBytes(0);
  EXPECT_EQ(available(directory.path()), 0U);
}

TEST_F(RecordingDiskCapacityServiceTest, ARefusedReadingFails) {
  for (const FileOperation operation : {FileOperation::space, FileOperation::info}) {
    files.clearFaults();
    files.failAlways(operation, EACCES);
    try {
      available(directory.path());
      ADD_FAILURE() << "an answer was made up";
    } catch (const NativeServiceError& error) {
      EXPECT_EQ(error,
                (NativeServiceError{NativeErrorCode::outputFailed,
                                    "The screenshot could not be written to its temporary output.", true}));
    }
  }
}

} // namespace
} // namespace tessarin
