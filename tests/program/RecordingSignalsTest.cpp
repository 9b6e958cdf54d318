// Recordings by the built program that are asked to end by a signal, whose host goes, or that are suspended:
// what they say, how they end, and what is left on the disk.

#include "RegionRecordingFixture.hpp"

#include "base/Text.hpp"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

class RecordingSignalsTest : public RegionRecordingFixture {
 protected:
  static void signal(RecordingProcess& recording, int number) {
    ASSERT_EQ(::kill(recording.process().pid(), number), 0);
  }

  // It has made its files of the one segment.
  void expectCompletion(RecordingProcess& recording) const {
    recording.waitForEvent("completed");
    EXPECT_EQ(recording.waitForEnd(), 0);
    expectSegments(1);
  }

  static void suspend(RecordingProcess& recording, std::chrono::milliseconds time) {
    signal(recording, SIGSTOP);
    std::this_thread::sleep_for(time);
    signal(recording, SIGCONT);
  }

  // As at the end of the control lines.
  void expectUnexpectedEnd(RecordingProcess& recording) const {
    const json::Document failed = recording.waitForEvent("failed");
    const json::Value error = *failed.root().member("error");
    EXPECT_EQ(error.member("code")->string(), "recordingFailed");
    EXPECT_EQ(error.member("message")->string(), "The screen recording could not be completed.");
    EXPECT_TRUE(error.member("recoverable")->boolean());
    EXPECT_EQ(recording.waitForEnd(), 1);
    EXPECT_NE(directory.read("diagnostics")
                  .find("tessarin-native recording-failed stage=unexpected-stream-stop "
                        "nativeCode=recordingFailed\n"),
              std::string::npos);
  }
};

class RecordingEndSignalTest : public RecordingSignalsTest, public testing::WithParamInterface<int> {};

TEST_P(RecordingEndSignalTest, WhileRecordingKeepsTheSegment) {
  RecordingProcess recording = record();
  recording.waitForEvent("healthChanged"); // a second has been recorded
  signal(recording, GetParam());
  const json::Document finalized = recording.waitForEvent("segmentFinalized");
  EXPECT_GE(finalized.root().member("durationMs")->number(), 900);
  expectUnexpectedEnd(recording);
  expectSegments(1);
}

TEST_P(RecordingEndSignalTest, WhilePausedKeepsWhatIsFinished) {
  RecordingProcess recording = record();
  recording.recordFor(300ms);
  recording.send("pause");
  recording.waitFor("paused");
  signal(recording, GetParam());
  expectUnexpectedEnd(recording);
  expectSegments(1);
  EXPECT_FALSE(std::filesystem::exists(segment(1)));
}

// Nothing of the program runs by itself yet while the display's server keeps it waiting.
TEST_P(RecordingEndSignalTest, InStartUpIsHeardWhenTheRecordingHasBegun) {
  ASSERT_EQ(::kill(desktop.serverPid(), SIGSTOP), 0);
  RecordingProcess recording = record();
  std::this_thread::sleep_for(700ms);
  signal(recording, GetParam());
  std::this_thread::sleep_for(100ms);
  EXPECT_TRUE(recording.process().isRunning());
  ASSERT_EQ(::kill(desktop.serverPid(), SIGCONT), 0);
  recording.waitFor("recording");
  expectUnexpectedEnd(recording);
  expectSegments(1);
}

// What has to be done for a stop is done, also when the line is still unread as the signal comes.
TEST_P(RecordingEndSignalTest, BehindAStopEndsNothing) {
  RecordingProcess recording = record();
  recording.recordFor(500ms);
  recording.send("stop");
  signal(recording, GetParam());
  recording.waitFor("stopping");
  signal(recording, GetParam());
  expectCompletion(recording);
  EXPECT_EQ(pictureTimes(session() + "/screen.mp4").size(), pictureTimes(segment(0)).size());
  EXPECT_EQ(pictureTimes(session() + "/recording.mp4").size(), pictureTimes(segment(0)).size());
}

INSTANTIATE_TEST_SUITE_P(Signals, RecordingEndSignalTest, testing::Values(SIGTERM, SIGINT, SIGHUP),
                         [](const auto& row) { return std::string(::sigabbrev_np(row.param)); });

TEST_F(RecordingSignalsTest, MoreSignalsNeitherEndItEarlierNorSpoilAnything) {
  RecordingProcess recording = record();
  recording.recordFor(500ms);
  for (int round = 0; round < 50 && recording.process().isRunning(); ++round) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGTERM})
      ::kill(recording.process().pid(), number);
    std::this_thread::sleep_for(2ms);
  }
  expectUnexpectedEnd(recording);
  expectSegments(1);
}

// As under nohup, or in the background of a script.
TEST_F(RecordingSignalsTest, ASignalThatTheParentHasItIgnoreEndsNothing) {
  RecordingProcess recording = record("HUP,INT");
  recording.waitFor("recording");
  signal(recording, SIGHUP);
  signal(recording, SIGINT);
  std::this_thread::sleep_for(300ms);
  recording.send("stop");
  expectCompletion(recording);
}

TEST_F(RecordingSignalsTest, ACommandThatRecordsNothingEndsAtOnce) {
  ASSERT_EQ(::kill(desktop.serverPid(), SIGSTOP), 0);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    ChildProcess list({"env", "--default-signal=HUP,INT,TERM", TESSARIN_PROGRAM, "list"},
                      {.environment = {{"DISPLAY", desktop.display()}}});
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(list.isRunning());
    ASSERT_EQ(::kill(list.pid(), number), 0);
    EXPECT_EQ(list.waitForEnd(2s), 128 + number);
  }
  ASSERT_EQ(::kill(desktop.serverPid(), SIGCONT), 0);
}

// Another process may hold the pipe of the control lines open, as children of the host do by accident.
TEST_F(RecordingSignalsTest, NobodyLeftToReadTheEventsIsTheEndEvenWhenTheControlLinesStayOpen) {
  ChildProcess host({"bash", "-c",
                     std::string(TESSARIN_PROGRAM) + " record --request-json " + encodedBase64(request()) +
                         " 2>/dev/null | head -n 1; echo \"status ${PIPESTATUS[0]}\""},
                    {.environment = {{"DISPLAY", desktop.display()}}, .hasInput = true});
  ASSERT_TRUE(host.readLine());
  EXPECT_EQ(host.readLine(20s), "status 1");
  expectSegments(1);
}

TEST_F(RecordingSignalsTest, ASuspendedRecordingGoesOnAfterAFewSeconds) {
  RecordingProcess recording = record();
  recording.recordFor(500ms);
  suspend(recording, 4s);
  std::this_thread::sleep_for(1s);
  recording.send("stop");
  const json::Document completed = recording.waitForEvent("completed");
  EXPECT_GE(completed.root().member("clock")->member("programDurationMs")->number(), 5000);
  EXPECT_EQ(recording.waitForEnd(), 0);
  expectSegments(1);
}

// Longer than a screen may stand still; what could be recorded is kept, and nothing hangs.
TEST_F(RecordingSignalsTest, ALongSuspendedRecordingGoesOnOrEndsInOrder) {
  RecordingProcess recording = record();
  recording.recordFor(500ms);
  suspend(recording, 9s);
  std::this_thread::sleep_for(1500ms);
  try {
    recording.send("stop");
  } catch (const std::runtime_error&) {
    // It has ended by itself.
  }
  std::string last;
  while (last != "failed" && last != "completed") {
    const json::Document event = recording.nextEvent();
    last = event.root().member("event")->string();
    if (last == "failed") {
      EXPECT_EQ(event.root().member("error")->member("code")->string(), "recordingScreenStalled");
    }
  }
  EXPECT_EQ(recording.waitForEnd(), last == "failed" ? 1 : 0);
  expectSegments(1);
}

} // namespace
} // namespace tessarin
