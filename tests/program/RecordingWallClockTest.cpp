// A recording by the built program while somebody sets the wall clock.

#include "AllSourcesFixture.hpp"

#include "trace/InteractionEventFile.hpp"

#include <cstdlib>
#include <ctime>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

class RecordingWallClockTest : public AllSourcesFixture {
 protected:
  RecordingWallClockTest() { setWallClock(0); }

  void setWallClock(int hours) const { directory.write("wall-clock", std::to_string(hours * 3600)); }
  // For a program under the clock.
  RecordingProcess::Environment environment() const {
    const char* const options = std::getenv("ASAN_OPTIONS");
    return {{"LD_PRELOAD", TESSARIN_TEST_WALL_CLOCK_LIBRARY},
            {"TESSARIN_TEST_WALL_CLOCK", directory / "wall-clock"},
            {"ASAN_OPTIONS", std::string(options ? options : "") + ":verify_asan_link_order=0"}};
  }
  // Hours between what a program under the clock reads and the time.
  double hoursApart() const {
    ChildProcess date({"date", "+%s"}, {.environment = environment()});
    const auto told = std::stod(date.readLine().value());
    return (told - static_cast<double>(std::time(nullptr))) / 3600;
  }
};

TEST_F(RecordingWallClockTest, SettingItForwardAndBackByHoursChangesNothing) {
  const auto begun = std::chrono::steady_clock::now();
  const auto recording = record(environment());
  recordAWhile(*recording);
  setWallClock(5);
  EXPECT_NEAR(hoursApart(), 5, 0.01) << "the clock is not the program's";
  std::this_thread::sleep_for(1500ms); // the watch looks meanwhile
  recording->send("pause");
  recording->waitFor("paused");
  setWallClock(-7);
  EXPECT_NEAR(hoursApart(), -7, 0.01);
  recording->send("resume");
  recording->waitFor("recording");
  std::this_thread::sleep_for(1500ms);
  setWallClock(2);
  std::this_thread::sleep_for(300ms);
  recording->send("stop");
  const json::Document completed = recording->waitForEvent("completed");
  EXPECT_EQ(recording->process().waitForEnd(10s), 0);
  const auto elapsed =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count();

  EXPECT_EQ(recording->output().find("stalled"), std::string::npos) << recording->output();
  const json::Value clock = *completed.root().member("clock");
  const double program = clock.member("programDurationMs")->number();
  EXPECT_GE(program, 4000);
  EXPECT_LE(program, elapsed);
  EXPECT_GE(clock.member("captureDurationMs")->number(), program);
  EXPECT_LE(clock.member("captureDurationMs")->number(), elapsed);
  expectFinishedSegments(2);
  const json::Value tracks = *completed.root().member("tracks");
  ASSERT_EQ(tracks.arraySize(), 5U);
  for (std::size_t i = 0; i < tracks.arraySize(); ++i)
    EXPECT_NEAR(tracks.at(i).member("durationMs")->number(), program, 150);
  const auto trace = InteractionEventFile::parse(directory.read(sessionID + "/interaction-events.jsonl"));
  ASSERT_FALSE(trace.empty());
  for (const InteractionEventDTO& event : trace) {
    EXPECT_GE(event.timestampMs(), 0);
    EXPECT_LE(static_cast<double>(event.timestampMs()), program + 100);
  }
}

} // namespace
} // namespace tessarin
