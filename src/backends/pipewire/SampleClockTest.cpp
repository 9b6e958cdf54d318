#include "backends/pipewire/SampleClock.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

namespace tessarin::pipewire {
namespace {

constexpr std::int64_t start = 5'000'000'000'000'000; // the host has been up for some weeks
constexpr std::int64_t frames = 256;
constexpr double length = frames * 1e9 / 48000;
constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t closeness = 10'000; // ten microseconds, which is half a frame

// When the buffer of that number really was, for a device whose clock is fast by so many parts of a million.
std::int64_t moment(int number, double partsPerMillion = 0) {
  return start + std::llround(number * length / (1 + partsPerMillion * 1e-6));
}

TEST(SampleClock, TellsTheTimesOfADeviceThatIsExact) {
  SampleClock clock(48000);
  for (int i = 0; i < 20000; ++i) {
    ASSERT_NEAR(static_cast<double>(clock.timeOf(moment(i), frames) - moment(i)), 0, 2) << i;
  }
}

TEST(SampleClock, FiltersJitterOut) {
  SampleClock clock(48000);
  std::mt19937 random(7); // NOLINT: the same in each run
  std::uniform_int_distribution<std::int64_t> jitter(-3 * millisecond, 3 * millisecond);
  std::int64_t last = 0;
  for (int i = 0; i < 20000; ++i) {
    const auto time = clock.timeOf(moment(i) + jitter(random), frames);
    if (i > 0) {
      ASSERT_GT(time, last);
      ASSERT_NEAR(static_cast<double>(time - last), length, 0.2 * millisecond) << i;
    }
    if (i > 4000) {
      ASSERT_LT(std::abs(time - moment(i)), millisecond) << i;
    }
    last = time;
  }
}

TEST(SampleClock, FollowsADeviceThatRunsFastOrSlow) {
  for (const double partsPerMillion : {-500.0, -50.0, 50.0, 500.0}) {
    SampleClock clock(48000);
    // Ten minutes, in which 500 parts of a million add up to 300 ms.
    for (int i = 0; i < 112'500; ++i) {
      const auto told = moment(i, partsPerMillion);
      ASSERT_LT(std::abs(clock.timeOf(told, frames) - told), millisecond) << partsPerMillion << " " << i;
    }
    EXPECT_NEAR(clock.period() * 48000 / 1e9, 1 - partsPerMillion * 1e-6, 2e-6);
  }
}

TEST(SampleClock, IsHardlyMovedByOneLateBuffer) {
  SampleClock clock(48000);
  for (int i = 0; i < 2000; ++i) {
    const auto told = moment(i) + (i == 1000 ? 19 * millisecond : 0);
    ASSERT_LT(std::abs(clock.timeOf(told, frames) - moment(i)), millisecond / 2) << i;
  }
}

struct Step {
  std::int64_t size; // nanoseconds
  int passesAfter;   // buffers; nothing passes through with -1
};

TEST(SampleClock, LetsThroughWhatNoJitterExplains) {
  for (const auto& step :
       {Step{2'900'000, -1}, Step{3'200'000, 7}, Step{16 * millisecond, 7}, Step{20 * millisecond - 1000, 7},
        Step{20 * millisecond + 1000, 0}, Step{37 * millisecond, 0}, Step{300 * millisecond, 0}}) {
    SampleClock clock(48000);
    for (int i = 0; i < 1000; ++i) {
      clock.timeOf(moment(i), frames);
    }
    int passedAfter = -1;
    for (int i = 0; i < 60; ++i) {
      const auto told = moment(1000 + i) + step.size;
      const auto distance = std::abs(clock.timeOf(told, frames) - told);
      if (passedAfter < 0 && distance < closeness) {
        passedAfter = i;
      }
      ASSERT_LT(distance, passedAfter < 0 ? step.size + closeness : closeness) << step.size << " " << i;
    }
    EXPECT_EQ(passedAfter, step.passesAfter) << step.size;
  }
}

TEST(SampleClock, TakesNoJitterForAStep) {
  SampleClock clock(48000);
  std::mt19937 random(3); // NOLINT: the same in each run
  std::uniform_int_distribution<std::int64_t> jitter(-10 * millisecond, 10 * millisecond);
  for (int i = 0; i < 100'000; ++i) {
    const auto time = clock.timeOf(moment(i) + jitter(random), frames);
    if (i > 4000) {
      ASSERT_LT(std::abs(time - moment(i)), 2 * millisecond) << i;
    }
  }
}

TEST(SampleClock, LetsThroughWhatIsKnownToBeMissingHoweverSmall) {
  SampleClock clock(48000);
  int number = 0;
  for (int i = 0; i < 2000; ++i, ++number) {
    const bool isLost = i % 10 == 9;
    number += isLost ? 1 : 0;
    ASSERT_NEAR(
        static_cast<double>(clock.timeOf(moment(number), frames, isLost ? frames : 0) - moment(number)), 0,
        100)
        << i;
  }
}

TEST(SampleClock, NeverGoesBackThoughTheDeviceDoes) {
  SampleClock clock(48000);
  std::int64_t last = 0;
  for (int i = 0; i < 3000; ++i) {
    const auto told = moment(i) - (i >= 1000 ? 50 * millisecond : 0);
    const auto time = clock.timeOf(told, frames);
    ASSERT_GT(time, last);
    if (i >= 1000 + 10) {
      ASSERT_NEAR(static_cast<double>(time - told), 0, 10) << i; // on the new time once it has caught up
    }
    last = time;
  }
}

TEST(SampleClock, TakesBuffersOfAnySize) {
  SampleClock clock(48000);
  const std::vector<std::int64_t> sizes = {1, 64, 2048, 137, 8192};
  std::int64_t position = 0;
  for (int i = 0; i < 5000; ++i) {
    const auto told = start + std::llround(static_cast<double>(position) * 1e9 / 48000);
    const auto size = sizes[static_cast<std::size_t>(i) % sizes.size()];
    ASSERT_NEAR(static_cast<double>(clock.timeOf(told, size) - told), 0, 2);
    position += size;
  }
}

} // namespace
} // namespace tessarin::pipewire
