#include "backends/x11/StreamTicks.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tessarin::x11 {
namespace {

constexpr std::int64_t millisecond = 1'000'000;

TEST(StreamTicks, StandsOnTheExactGridHoweverLongItRuns) {
  const StreamTicks ticks(1000, MediaTime(1, 60));
  EXPECT_EQ(ticks.time(0), 1000);
  EXPECT_EQ(ticks.time(1), 1000 + 16'666'667);
  EXPECT_EQ(ticks.time(2), 1000 + 33'333'333);
  EXPECT_EQ(ticks.time(60), 1000 + 1'000'000'000);
  EXPECT_EQ(ticks.time(60LL * 86'400), 1000 + 86'400'000'000'000);
}

TEST(StreamTicks, StampsWithTheMiddleOfTheIntervalBefore) {
  const StreamTicks ticks(1'000'000'000, MediaTime(1, 50));
  EXPECT_EQ(ticks.stamp(0), 990'000'000);
  EXPECT_EQ(ticks.stamp(50), 1'990'000'000);
}

TEST(StreamTicks, TakesTheLatestTickThatIsDue) {
  const StreamTicks ticks(0, MediaTime(1, 60));
  EXPECT_EQ(ticks.tickAt(0), 0);
  EXPECT_EQ(ticks.tickAt(16'666'666), 0);
  EXPECT_EQ(ticks.tickAt(16'666'667), 1);
  EXPECT_EQ(ticks.tickAt(33'333'332), 1);
  EXPECT_EQ(ticks.tickAt(33'333'333), 2);
  EXPECT_EQ(ticks.tickAt(1'000'000'000), 60);
}

TEST(StreamTicks, SamplesOnTheTicksUntilTheContentSaysOtherwise) {
  const StreamTicks ticks(500, MediaTime(1, 30));
  EXPECT_EQ(ticks.sampleTime(7), ticks.time(7));
}

// Runs content that changes at `period` from `phase` on, wobbling by a millisecond, and answers which change
// each sample saw once the grid had time to settle.
std::vector<int> seen(StreamTicks ticks, std::int64_t period, std::int64_t phase) {
  std::vector<int> samples;
  int latest = -1;
  int sampled = -1;
  bool told = false;
  std::int64_t tick = 0;
  for (int change = 0; change < 400; ++change) {
    const auto wobble = (change * 7 % 5 - 2) * millisecond / 2;
    const auto when = phase + change * period + wobble;
    while (ticks.sampleTime(tick + 1) < when) {
      tick = ticks.tickAt(ticks.sampleTime(tick + 1));
      if (latest != sampled) {
        sampled = latest;
        told = false;
        if (change > 40) {
          samples.push_back(sampled);
        }
      }
    }
    latest = change;
    if (!told) {
      ticks.contentChanged(when);
      told = true;
    }
  }
  return samples;
}

TEST(StreamTicks, SeesEveryChangeOnceOfContentAsRegularAsTheGridWhateverItsPhase) {
  const auto period = std::int64_t{16'666'667};
  for (std::int64_t phase = 0; phase < period; phase += millisecond / 2) {
    const auto samples = seen(StreamTicks(0, MediaTime(1, 60)), period, phase);
    ASSERT_GT(samples.size(), 300U);
    for (std::size_t i = 1; i < samples.size(); ++i) {
      ASSERT_EQ(samples[i], samples[i - 1] + 1) << "phase " << phase << " sample " << i;
    }
  }
}

TEST(StreamTicks, SeesEverySecondChangeOfContentTwiceAsFastThatKeepsOffTheSamplingMoment) {
  const auto period = std::int64_t{16'666'667};
  for (std::int64_t phase = 3 * millisecond; phase < 14 * millisecond; phase += millisecond) {
    const auto samples = seen(StreamTicks(0, MediaTime(1, 30)), period, phase);
    ASSERT_GT(samples.size(), 150U);
    for (std::size_t i = 1; i < samples.size(); ++i) {
      ASSERT_EQ(samples[i], samples[i - 1] + 2) << "phase " << phase << " sample " << i;
    }
  }
}

TEST(StreamTicks, KeepsItsMomentForContentWithoutARhythm) {
  StreamTicks ticks(0, MediaTime(1, 60));
  for (int change = 0; change < 500; ++change) {
    ticks.contentChanged(change * 17 * millisecond + (change % 3) * 5 * millisecond);
    ASSERT_EQ(ticks.sampleTime(9), ticks.time(9));
  }
}

TEST(StreamTicks, StaysWithinHalfAnIntervalOfItsTicks) {
  for (std::int64_t phase = -8 * millisecond; phase < 8 * millisecond; phase += millisecond) {
    StreamTicks ticks(0, MediaTime(1, 60));
    for (int change = 1; change < 100; ++change) {
      ticks.contentChanged(ticks.time(change) + phase);
    }
    EXPECT_LE(std::abs(ticks.sampleTime(5) - ticks.time(5)), 8'333'334);
  }
}

} // namespace
} // namespace tessarin::x11
