// Recordings by the built program under the limits that a shell or a service manager sets for processes.

#include "ReadableMovie.hpp"
#include "RegionRecordingFixture.hpp"

#include <algorithm>
#include <chrono>
#include <string>
#include <sys/resource.h>

namespace tessarin {
namespace {

class RecordingLimitsTest : public RegionRecordingFixture {
 protected:
  static rlimit filesOf(RecordingProcess& recording) {
    rlimit limit{};
    EXPECT_EQ(::prlimit(recording.process().pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    return limit;
  }
};

// Such a limit is a full disk to a recording.
TEST_F(RecordingLimitsTest, TheLargestSizeOfAFileEndsARecordingInOrder) {
  RecordingProcess recording = record();
  recording.recordFor(std::chrono::milliseconds(300));
  recording.send("pause");
  recording.waitFor("paused");
  recording.send("resume");
  recording.waitFor("recording");
  recording.waitForEvent("healthChanged");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (readableMs(segment(1)) == 0)
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  const rlimit tooSmall{16, RLIM_INFINITY};
  ASSERT_EQ(::prlimit(recording.process().pid(), RLIMIT_FSIZE, &tooSmall, nullptr), 0);
  recording.send("stop");

  const json::Document failed = recording.waitForEvent("failed");
  EXPECT_EQ(failed.root().member("error")->member("code")->string(), "recordingFailed");
  EXPECT_EQ(recording.waitForEnd(), 1);
  expectSegments(1);
  EXPECT_GE(readableMs(segment(1)), 900);

  const Reply reply(run(withRequest(
      "recover-recording", R"({"sessionId":")" + sessionID + R"(","outputDirectory":")" + session() +
                               R"(","segmentPaths":[")" + segment(0) + R"(",")" + segment(1) + R"("]})")));
  EXPECT_GE(reply.data().member("clock")->member("programDurationMs")->number(), 1200);
}

TEST_F(RecordingLimitsTest, AsManyFilesMayBeOpenAsTheSystemAllows) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const struct {
    rlim_t soft, expected;
  } cases[] = {{256, std::min<rlim_t>(before.rlim_max, 16384)},
               {before.rlim_max, before.rlim_max}}; // never fewer than it had
  for (const auto& each : cases) {
    const rlimit given{each.soft, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &given), 0);
    RecordingProcess recording = record();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    recording.waitFor("recording");
    EXPECT_EQ(filesOf(recording).rlim_cur, each.expected);
    EXPECT_EQ(filesOf(recording).rlim_max, before.rlim_max);
    recording.send("cancel");
    EXPECT_EQ(recording.waitForEnd(), 0);
  }
}

} // namespace
} // namespace tessarin
