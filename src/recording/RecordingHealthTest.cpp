#include "recording/RecordingHealth.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

using enum RecordingStorageHealth;

constexpr std::int64_t mib = 1'048'576;

TEST(RecordingHealthPolicy, JudgesFreeSpaceAgainstWhatTheMergeWillNeed) {
  struct Row {
    std::int64_t sourceBytes, freeBytes;
    RecordingStorageHealth health;
  };
  for (const Row& row : {
           // Below 64 MiB of segments the bounds are fixed.
           Row{0, 256 * mib - 1, critical},
           Row{0, 256 * mib, low},
           Row{0, 1024 * mib - 1, low},
           Row{0, 1024 * mib, healthy},
           Row{10 * mib, 300 * mib, low},
           Row{10 * mib, 200 * mib, critical},
           Row{64 * mib - 1, 256 * mib - 1, critical},
           Row{64 * mib - 1, 256 * mib, low},
           // From 64 MiB on, twice the segments and a margin.
           Row{64 * mib, 256 * mib - 1, critical},
           Row{64 * mib, 256 * mib, low},
           Row{64 * mib, 1024 * mib - 1, low},
           Row{64 * mib, 1024 * mib, healthy},
           Row{100 * mib, 328 * mib - 1, critical},
           Row{100 * mib, 328 * mib, low},
           Row{192 * mib - 1, 512 * mib - 3, critical},
           Row{192 * mib - 1, 512 * mib - 2, low},
           Row{192 * mib - 1, 1024 * mib - 1, low},
           Row{192 * mib - 1, 1024 * mib, healthy},
           // From 192 MiB on, low follows the segments too.
           Row{192 * mib, 512 * mib - 1, critical},
           Row{192 * mib, 512 * mib, low},
           Row{192 * mib, 1024 * mib - 1, low},
           Row{192 * mib, 1024 * mib, healthy},
           Row{1024 * mib, 2176 * mib - 1, critical},
           Row{1024 * mib, 2176 * mib, low},
           Row{1024 * mib, 2688 * mib - 1, low},
           Row{1024 * mib, 2688 * mib, healthy},
           // Sizes beyond all disks don't overflow.
           Row{std::numeric_limits<std::int64_t>::max(), 0x3FFFFFFFFFFFFFFE, critical},
           Row{std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::max(), healthy},
       })
    EXPECT_EQ(RecordingHealthPolicy::storage(row.freeBytes, row.sourceBytes), row.health)
        << row.freeBytes << " free for " << row.sourceBytes;
}

TEST(RecordingHealthPolicy, DoesNotJudgeFiguresThatItDoesNotHave) {
  EXPECT_EQ(RecordingHealthPolicy::storage(std::nullopt, 0), unknown);
  EXPECT_EQ(RecordingHealthPolicy::storage(-1, 0), unknown);
  EXPECT_EQ(RecordingHealthPolicy::storage(1024 * mib, -1), unknown);
}

TEST(RecordingHealth, LeavesAbsentLanesOutOfItsJson) {
  RecordingHealth health;
  health.storage = critical;
  EXPECT_EQ(json::encode(health), R"({"screen":"healthy","storage":"critical"})");
  health.screen = RecordingSourceHealth::stalled;
  health.microphone = RecordingSourceHealth::quiet;
  health.systemAudio = RecordingSourceHealth::healthy;
  health.camera = RecordingSourceHealth::stalled;
  health.storage = low;
  EXPECT_EQ(json::encode(health), R"({"camera":"stalled","microphone":"quiet","screen":"stalled",)"
                                  R"("storage":"low","systemAudio":"healthy"})");
  health.storage = unknown;
  EXPECT_NE(json::encode(health).find(R"("storage":"unknown")"), std::string::npos);
}

} // namespace
} // namespace tessarin
