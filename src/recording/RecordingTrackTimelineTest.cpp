#include "recording/RecordingTrackTimeline.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace tessarin {
namespace {

TEST(RecordingTrackTimeline, LetsTwoVideoTracksDifferByTwoFramesOrATenthOfASecond) {
  struct Row {
    std::int64_t frameRate, toleranceMs;
  };
  for (const Row row :
       {Row{15, 134}, Row{30, 100}, Row{60, 100}, Row{1, 2000}, Row{0, 2000}, Row{-5, 2000}}) {
    using RecordingTrackTimeline::cameraMatches;
    EXPECT_TRUE(cameraMatches(10000, 10000, row.frameRate));
    EXPECT_TRUE(cameraMatches(10000, 10000 + row.toleranceMs, row.frameRate)) << row.frameRate;
    EXPECT_TRUE(cameraMatches(10000, 10000 - row.toleranceMs, row.frameRate)) << row.frameRate;
    EXPECT_FALSE(cameraMatches(10000, 10001 + row.toleranceMs, row.frameRate)) << row.frameRate;
    EXPECT_FALSE(cameraMatches(10000, 9999 - row.toleranceMs, row.frameRate)) << row.frameRate;
  }
}

} // namespace
} // namespace tessarin
