#include "base/MediaTime.hpp"

#include "base/HostClock.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t finest = std::numeric_limits<std::int32_t>::max();

// Equal as written, not only as a time.
void expectWritten(MediaTime time, std::int64_t value, std::int32_t timescale) {
  EXPECT_TRUE(time.isNumeric());
  EXPECT_EQ(time.value(), value);
  EXPECT_EQ(time.timescale(), timescale);
}

TEST(MediaTime, IsNotNumericWithoutAPositiveTimescale) {
  for (const MediaTime time : {MediaTime(), MediaTime(5, 0), MediaTime(5, -1)}) {
    EXPECT_FALSE(time.isNumeric());
    EXPECT_EQ(time.value(), 0);
    EXPECT_EQ(time.timescale(), 0);
    EXPECT_EQ(time.seconds(), 0);
    EXPECT_EQ(time.wholeMilliseconds(), 0);
  }
  EXPECT_TRUE(MediaTime(0, 1).isNumeric());
}

TEST(MediaTime, ConversionsRoundHalfAwayFromZero) {
  struct Row {
    std::int64_t value;
    std::int32_t from;
    std::int32_t to;
    std::int64_t expected;
  };
  for (const Row& row : {
           Row{1, 2, 1, 1},
           Row{-1, 2, 1, -1},
           Row{3, 2, 1, 2},
           Row{-3, 2, 1, -2},
           Row{1, 3, 1, 0},
           Row{-1, 3, 1, 0},
           Row{2, 3, 1, 1},
           Row{-2, 3, 1, -1},
           Row{499, 1000, 1, 0},
           Row{500, 1000, 1, 1},
           Row{-499, 1000, 1, 0},
           Row{-500, 1000, 1, -1},
           Row{1499, 1000, 1, 1},
           Row{1, 60, 90000, 1500},
           Row{1, 1'000'000'000, 90000, 0},
           Row{7, 90000, 90000, 7},
           Row{0, 30, 1000, 0},
       })
    expectWritten(MediaTime(row.value, row.from).convertedTo(row.to), row.expected, row.to);
}

TEST(MediaTime, AConversionThatDoesNotFitIsNotNumeric) {
  expectWritten(MediaTime(highest, 1).convertedTo(1), highest, 1);
  expectWritten(MediaTime(lowest, 1).convertedTo(1), lowest, 1);
  expectWritten(MediaTime(highest, finest).convertedTo(1), 4294967298, 1);
  EXPECT_FALSE(MediaTime(highest, 1).convertedTo(2).isNumeric());
  EXPECT_FALSE(MediaTime(lowest, 1).convertedTo(2).isNumeric());
  EXPECT_FALSE(MediaTime(highest, 1).convertedTo(finest).isNumeric());
  expectWritten(MediaTime(highest / 2, 1).convertedTo(2), highest - 1, 2);
  EXPECT_FALSE(MediaTime(highest / 2 + 1, 1).convertedTo(2).isNumeric());
  expectWritten(MediaTime(lowest / 2, 1).convertedTo(2), lowest, 2);
  EXPECT_FALSE(MediaTime(1, 1).convertedTo(0).isNumeric());
  EXPECT_FALSE(MediaTime().convertedTo(1000).isNumeric());
}

TEST(MediaTime, YieldsSecondsAndWholeMilliseconds) {
  EXPECT_DOUBLE_EQ(MediaTime(3, 2).seconds(), 1.5);
  EXPECT_EQ(MediaTime(1, 60).wholeMilliseconds(), 17);
  EXPECT_EQ(MediaTime(1, 2000).wholeMilliseconds(), 1);
  EXPECT_EQ(MediaTime(-1, 2000).wholeMilliseconds(), -1);
  EXPECT_EQ(MediaTime::milliseconds(1234).wholeMilliseconds(), 1234);
  EXPECT_EQ(MediaTime(highest, 1).wholeMilliseconds(), 0);
}

TEST(MediaTime, SumsAreExactAtTheLeastCommonTimescale) {
  expectWritten(MediaTime(1, 30) + MediaTime(1, 60), 3, 60);
  expectWritten(MediaTime(1, 4) + MediaTime(1, 6), 5, 12);
  expectWritten(MediaTime(1, 60) - MediaTime(1, 30), -1, 60);
  expectWritten(MediaTime(1, 48000) + MediaTime(1, 90000), 15 + 8, 720000);
  expectWritten(MediaTime(5, 1000) - MediaTime(5, 1000), 0, 1000);
  expectWritten(MediaTime(1, 46341) + MediaTime(1, 46339), 92680, 46341 * 46339);
}

TEST(MediaTime, SumsBeyondThirtyTwoBitTimescalesRoundToTheFiner) {
  // The least common multiple of 10^9 and 90000 is 9 * 10^9.
  expectWritten(MediaTime(1, 90000) + MediaTime(1, 1'000'000'000), 11112, 1'000'000'000);
  expectWritten(MediaTime(1, 90000) - MediaTime(1, 1'000'000'000), 11110, 1'000'000'000);
  expectWritten(MediaTime(-1, 90000) - MediaTime(1, 1'000'000'000), -11112, 1'000'000'000);
  expectWritten(MediaTime(1, finest) + MediaTime(1, finest - 1), 2, finest);
}

TEST(MediaTime, SumsThatDoNotFitAreNotNumeric) {
  EXPECT_FALSE((MediaTime(highest, 1) + MediaTime(1, 1)).isNumeric());
  EXPECT_FALSE((MediaTime(lowest, 1) - MediaTime(1, 1)).isNumeric());
  EXPECT_FALSE((MediaTime(highest, 1) + MediaTime(1, 2)).isNumeric());
  expectWritten(MediaTime(highest, 1) + MediaTime(lowest, 1), -1, 1);
  expectWritten(MediaTime(highest - 1, 1) + MediaTime(1, 1), highest, 1);
}

TEST(MediaTime, ArithmeticWithANonNumericTimeIsNotNumeric) {
  EXPECT_FALSE((MediaTime() + MediaTime(1, 1)).isNumeric());
  EXPECT_FALSE((MediaTime(1, 1) + MediaTime()).isNumeric());
  EXPECT_FALSE((MediaTime() - MediaTime(1, 1)).isNumeric());
  EXPECT_FALSE((MediaTime(1, 1) - MediaTime()).isNumeric());
  EXPECT_FALSE(MediaTime().scaledBy(1, 2).isNumeric());
}

TEST(MediaTime, ScalesExactlyWhereItCan) {
  expectWritten(MediaTime(10, 60).scaledBy(3, 2), 15, 60);
  expectWritten(MediaTime(1, 60).scaledBy(1, 2), 1, 120);
  expectWritten(MediaTime(1, 60).scaledBy(5, 4), 5, 240);
  expectWritten(MediaTime(3, 60).scaledBy(1, 6), 1, 120);
  expectWritten(MediaTime(1, 60).scaledBy(-1, 2), -1, 120);
  expectWritten(MediaTime(1, 60).scaledBy(1, -2), -1, 120);
  expectWritten(MediaTime(1, 60).scaledBy(-1, -2), 1, 120);
  expectWritten(MediaTime(0, 60).scaledBy(1, 7), 0, 60);
  expectWritten(MediaTime(7, 60).scaledBy(0, 7), 0, 60);
  EXPECT_FALSE(MediaTime(1, 60).scaledBy(1, 0).isNumeric());
}

TEST(MediaTime, ScalesToTheFinestTimescaleThatFits) {
  // Thirds of nanoseconds need a timescale of 3 * 10^9; 2 * 10^9 fits.
  expectWritten(MediaTime(1, 1'000'000'000).scaledBy(1, 3), 1, 2'000'000'000);
  expectWritten(MediaTime(-2, 1'000'000'000).scaledBy(1, 3), -1, 2'000'000'000);
  expectWritten(MediaTime(1, finest).scaledBy(1, 2), 1, finest);
  expectWritten(MediaTime(-1, finest).scaledBy(1, 2), -1, finest);
  expectWritten(MediaTime(1, 2).scaledBy(1, std::numeric_limits<std::int32_t>::min()), 0, finest - 1);
}

TEST(MediaTime, AScaledTimeThatDoesNotFitIsNotNumeric) {
  EXPECT_FALSE(MediaTime(highest, 1).scaledBy(2, 1).isNumeric());
  EXPECT_FALSE(MediaTime(lowest, 1).scaledBy(-1, 1).isNumeric());
  expectWritten(MediaTime(highest, 1).scaledBy(-1, 1), -highest, 1);
}

TEST(MediaTime, ComparesAcrossTimescales) {
  EXPECT_EQ(MediaTime(1, 2), MediaTime(500, 1000));
  EXPECT_LT(MediaTime(1, 3), MediaTime(1, 2));
  EXPECT_GT(MediaTime(-1, 3), MediaTime(-1, 2));
  EXPECT_LT(MediaTime(333'333'333, 1'000'000'000), MediaTime(1, 3));
  EXPECT_GT(MediaTime(highest, 1), MediaTime(highest, finest));
  EXPECT_LT(MediaTime(lowest, 1), MediaTime(lowest, finest));
  EXPECT_LT(MediaTime(highest - 1, 1), MediaTime(highest, 1));
}

TEST(MediaTime, NonNumericTimesAreEqualAndLessThanAllOthers) {
  EXPECT_EQ(MediaTime(), MediaTime(3, 0));
  EXPECT_LT(MediaTime(), MediaTime(lowest, 1));
  EXPECT_GT(MediaTime::zero(), MediaTime());
  EXPECT_NE(MediaTime::zero(), MediaTime());
}

TEST(HostClock, NanosecondsAreNumericAndNotNegative) {
  EXPECT_EQ(hostNanoseconds(MediaTime(3, 2)), 1'500'000'000U);
  EXPECT_EQ(hostNanoseconds(MediaTime::zero()), 0U);
  EXPECT_EQ(hostNanoseconds(MediaTime(1, 3)), 333'333'333U);
  EXPECT_EQ(hostNanoseconds(MediaTime::nanoseconds(highest)), static_cast<std::uint64_t>(highest));
  EXPECT_FALSE(hostNanoseconds(MediaTime::nanoseconds(-1)));
  EXPECT_FALSE(hostNanoseconds(MediaTime()));
  EXPECT_FALSE(hostNanoseconds(MediaTime(highest, 1)));
}

TEST(HostClock, TheMachinesClockNeverGoesBack) {
  const MonotonicHostClock clock;
  const MediaTime first = clock.now();
  const MediaTime second = clock.now();
  EXPECT_EQ(first.timescale(), 1'000'000'000);
  EXPECT_GT(first, MediaTime::zero());
  EXPECT_LE(first, second);
}

} // namespace
} // namespace tessarin
