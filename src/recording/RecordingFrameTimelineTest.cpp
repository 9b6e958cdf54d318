#include "recording/RecordingFrameTimeline.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

constexpr MediaTime epoch = MediaTime::nanoseconds(5'000'000'000);
constexpr MediaTime thirtieth{1, 30};

MediaTime at(std::int64_t nanosecondsFromEpoch) {
  return MediaTime::nanoseconds(epoch.value() + nanosecondsFromEpoch);
}

TEST(RecordingFrameTimeline, PlacesTimesOnTheNearestSlotHalvesAwayFromZero) {
  struct Row {
    std::int64_t delta; // nanoseconds
    std::int64_t slot;
  };
  for (const Row& row :
       {Row{0, 0}, Row{16'666'666, 0}, Row{16'666'667, 1}, Row{33'333'333, 1}, Row{49'999'999, 1},
        Row{50'000'000, 2}, Row{50'000'001, 2}, Row{1'000'000'000, 30}, Row{3'600'000'000'000, 108'000}}) {
    const MediaTime time = RecordingFrameTimeline::presentationTime(at(row.delta), epoch, thirtieth);
    ASSERT_TRUE(time.isNumeric()) << row.delta;
    EXPECT_EQ(time.value(), row.slot) << row.delta;
    EXPECT_EQ(time.timescale(), 30);
  }
}

TEST(RecordingFrameTimeline, CountsSlotsOfIntervalsLongerThanOneUnit) {
  const MediaTime time = RecordingFrameTimeline::presentationTime(at(100'000'000), epoch, {1001, 30000});
  EXPECT_EQ(time.value(), 2 * 1001); // 3000 units hold two intervals
  EXPECT_EQ(time.timescale(), 30000);
}

TEST(RecordingFrameTimeline, YieldsNothingForWhatHasNoSlot) {
  EXPECT_FALSE(RecordingFrameTimeline::presentationTime(at(-1), epoch, thirtieth).isNumeric());
  EXPECT_FALSE(RecordingFrameTimeline::presentationTime({}, epoch, thirtieth).isNumeric());
  EXPECT_FALSE(RecordingFrameTimeline::presentationTime(at(0), {}, thirtieth).isNumeric());
  EXPECT_FALSE(RecordingFrameTimeline::presentationTime(at(0), epoch, {}).isNumeric());
  EXPECT_FALSE(RecordingFrameTimeline::presentationTime(at(0), epoch, {0, 30}).isNumeric());
  EXPECT_FALSE(RecordingFrameTimeline::presentationTime(at(0), epoch, {-1, 30}).isNumeric());
}

} // namespace
} // namespace tessarin
