#include "modules/editing/FrameSchedule.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace tessarin::editing {
namespace {

MediaTimeRange ms(std::int64_t start, std::int64_t duration) {
  return {MediaTime::milliseconds(start), MediaTime::milliseconds(duration)};
}

TEST(FrameSchedule, HasTheFramesThatComeNearestToTheDurationAndAtLeastOne) {
  struct Case {
    std::int64_t durationMs, rate, count;
  };
  for (const auto& [durationMs, rate, count] : {Case{1000, 30, 30},
                                                {1016, 30, 30},
                                                {1017, 30, 31},
                                                {16, 30, 1},
                                                {1, 30, 1},
                                                {50, 30, 2},
                                                {3'600'000, 60, 216'000},
                                                {1000, 60, 60},
                                                {1008, 60, 60},
                                                {1009, 60, 61},
                                                {8, 60, 1}}) {
    const FrameSchedule schedule({{ms(0, durationMs), ms(0, durationMs)}},
                                 MediaTime(1, static_cast<std::int32_t>(rate)));
    EXPECT_EQ(schedule.count(), count) << durationMs << " at " << rate;
    EXPECT_EQ(schedule.durationMs(), durationMs);
  }
}

TEST(FrameSchedule, MapsTheGridToTheSourceExactly) {
  const FrameSchedule schedule({{ms(1000, 500), ms(0, 500)},     // as it is
                                {ms(200, 3000), ms(500, 1000)},  // three times as fast
                                {ms(5000, 500), ms(1500, 1000)}, // half as fast
                                {ms(0, 1), ms(2500, 1)}},
                               MediaTime(1, 60));
  EXPECT_EQ(schedule.count(), 150);
  EXPECT_EQ(schedule.outputTime(7), MediaTime(7, 60));
  EXPECT_EQ(schedule.sourceTime(0, 90000), 90000);
  EXPECT_EQ(schedule.sourceTime(29, 90000), 90000 + 29 * 1500);
  EXPECT_EQ(schedule.sourceTime(30, 90000), 18000);
  EXPECT_EQ(schedule.sourceTime(31, 90000), 18000 + 4500);
  EXPECT_EQ(schedule.sourceTime(89, 90000), 18000 + 59 * 4500);
  EXPECT_EQ(schedule.sourceTime(90, 90000), 450000);
  EXPECT_EQ(schedule.sourceTime(91, 90000), 450750);
  EXPECT_EQ(schedule.sourceTime(149, 90000), 450000 + 59 * 750);
  // A sixtieth of a second is no whole number of thousandths.
  EXPECT_EQ(schedule.sourceTime(1, 1000), 1016);
  EXPECT_EQ(schedule.sourceTime(2, 1000), 1033);
}

TEST(FrameSchedule, DoesNotDriftOverHours) {
  const std::int64_t tenHours = 36'000'000;
  const FrameSchedule schedule({{ms(0, tenHours), ms(0, tenHours / 3 * 2)}}, MediaTime(1, 60));
  EXPECT_EQ(schedule.count(), 1'440'000);
  EXPECT_EQ(schedule.sourceTime(1'439'999, 90000), 1'439'999LL * 2250);
}

TEST(FrameSchedule, RefusesWhatIsNoTimeLine) {
  const MediaTime frame(1, 30);
  const auto refused = [](const std::vector<MovieSegment>& segments, MediaTime duration) {
    try {
      const FrameSchedule schedule(segments, duration);
      return false;
    } catch (const MovieEditingFailure& failure) {
      return failure.error() == MovieEditingError::notComposable;
    }
  };
  EXPECT_TRUE(refused({}, frame));
  EXPECT_TRUE(refused({{ms(0, 10), ms(1, 10)}}, frame));
  EXPECT_TRUE(refused({{ms(0, 10), ms(0, 10)}, {ms(0, 10), ms(11, 10)}}, frame));
  EXPECT_TRUE(refused({{ms(0, 10), ms(0, 0)}}, frame));
  EXPECT_TRUE(refused({{ms(0, 0), ms(0, 10)}}, frame));
  EXPECT_TRUE(refused({{ms(-1, 10), ms(0, 10)}}, frame));
  EXPECT_TRUE(refused({{{MediaTime(1, 3000), MediaTime(1, 1)}, ms(0, 1000)}}, frame));
  for (const MediaTime wrong : {MediaTime(), MediaTime::zero(), MediaTime(-1, 30), MediaTime(1001, 1000)})
    EXPECT_TRUE(refused({{ms(0, 10), ms(0, 10)}}, wrong));
  EXPECT_FALSE(refused({{ms(0, 10), ms(0, 10)}}, MediaTime(1, 1)));
}

} // namespace
} // namespace tessarin::editing
