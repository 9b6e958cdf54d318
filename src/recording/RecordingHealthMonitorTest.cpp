#include "recording/RecordingHealthMonitor.hpp"

#include "support/FaultyFileSystem.hpp"
#include "support/ManualClock.hpp"
#include "support/ManualQueue.hpp"
#include "support/RecordingRequests.hpp"
#include "support/ScriptedDevices.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <vector>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using namespace std::chrono_literals;
using Lane = RecordingHealthMonitor::Lane;

constexpr std::uint64_t mib = 1'048'576;

class RecordingHealthMonitorTest : public ::testing::Test {
 protected:
  RecordingHealthMonitorTest() {
    std::filesystem::create_directory(directory / "segments");
    files.setAvailableBytes(4096 * mib);
    settings = sampleSettings();
    clock.set(1000s);
  }

  void start() {
    monitor.start(
        settings, [this] { return cameraFrame; }, directory.path(), "S", writer, [this] { ++failures; });
  }

  void hear(Lane lane, float value) { monitor.receivedAudio(lane, steadySample(value, 32, clock.now()).pcm); }

  // Seconds pass with the screen alive, and what else is done each second.
  void pass(
      int seconds, const std::function<void()>& eachSecond = [] {}) {
    for (int i = 0; i < seconds; ++i) {
      monitor.wroteScreenFrame();
      eachSecond();
      scheduler.advance(1s);
    }
  }

  static std::string healthLine(const std::string& health) {
    return R"({"event":"healthChanged","health":)" + health + R"(,"schemaVersion":2,"sessionId":"S"})" + "\n";
  }

  // What was sent since the last call.
  std::vector<std::string> taken() { return std::exchange(lines, {}); }

  using Lines = std::vector<std::string>;
  const std::string fine = healthLine(R"({"screen":"healthy","storage":"healthy"})");

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ManualClock clock;
  ManualScheduler scheduler{clock};
  RecordingSettingsDTO settings;
  std::optional<MediaTime> cameraFrame;
  Lines lines;
  bool outputBroken = false;
  int failures = 0;
  RecordingEventWriter writer{[this](std::string_view bytes) {
    if (outputBroken)
      throw FileFailure(FileOperation::write, EPIPE);
    lines.emplace_back(bytes);
  }};
  RecordingHealthMonitor monitor{clock, files, scheduler.queueFactory()};
};

TEST_F(RecordingHealthMonitorTest, RunsOnAQueueOfItsOwn) {
  EXPECT_EQ(scheduler.labels(), Lines{"com.tessarin.recording.health"});
}

TEST_F(RecordingHealthMonitorTest, ReportsTheFirstCheckAfterASecondAndThenOnlyChanges) {
  start();
  scheduler.advance(999ms);
  EXPECT_EQ(taken(), Lines{});
  scheduler.advance(1ms);
  EXPECT_EQ(taken(), Lines{fine});
  pass(60);
  EXPECT_EQ(taken(), Lines{});
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(monitor.terminalError(), std::nullopt);
}

TEST_F(RecordingHealthMonitorTest, CallsTheScreenStalledAfterThreeSecondsAndEndsAfterEight) {
  start();
  pass(1);
  EXPECT_EQ(taken(), Lines{fine});
  monitor.wroteScreenFrame(); // at 1 s
  scheduler.advance(2s);
  EXPECT_EQ(taken(), Lines{});
  scheduler.advance(1s);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"stalled","storage":"healthy"})")});
  scheduler.advance(4s);
  EXPECT_EQ(monitor.terminalError(), std::nullopt);
  scheduler.advance(1s);
  EXPECT_EQ(monitor.terminalError(),
            (NativeServiceError{
                NativeErrorCode::recordingScreenStalled,
                "Screen frames stopped being written. Recording sources were retained for recovery.", true}));
  EXPECT_EQ(failures, 1);
  scheduler.advance(60s);
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(taken(), Lines{});
  EXPECT_EQ(scheduler.timerCount(), 0U);
}

TEST_F(RecordingHealthMonitorTest, CountsTheAgeOfALaneToTheNanosecond) {
  for (const bool isFresh : {true, false}) {
    RecordingHealthMonitor fresh(clock, files, scheduler.queueFactory());
    fresh.start(settings, nullptr, directory.path(), "S", writer, [] {});
    if (isFresh)
      clock.advance(1ns);
    fresh.wroteScreenFrame();
    scheduler.advance(3s - clock.elapsed() % 1s);
    const std::string stalled = healthLine(R"({"screen":"stalled","storage":"healthy"})");
    EXPECT_EQ(taken(), isFresh ? Lines{fine} : (Lines{fine, stalled}));
    scheduler.advance(5s);
    EXPECT_EQ(fresh.terminalError().has_value(), !isFresh);
    taken();
  }
}

TEST_F(RecordingHealthMonitorTest, ForgivesAScreenThatComesBack) {
  start();
  scheduler.advance(3s);
  EXPECT_EQ(taken(), (Lines{fine, healthLine(R"({"screen":"stalled","storage":"healthy"})")}));
  pass(1);
  EXPECT_EQ(taken(), Lines{fine});
}

TEST_F(RecordingHealthMonitorTest, CountsAgesFromTheResumeAndReportsAnew) {
  start();
  pass(2);
  taken();
  monitor.stop();
  scheduler.advance(1h);
  EXPECT_EQ(taken(), Lines{});
  start();
  scheduler.advance(2s);
  EXPECT_EQ(taken(), Lines{fine});
  scheduler.advance(1s);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"stalled","storage":"healthy"})")});
}

TEST_F(RecordingHealthMonitorTest, ReplacesARunningWatch) {
  start();
  scheduler.advance(500ms);
  start();
  EXPECT_EQ(scheduler.timerCount(), 1U);
  scheduler.advance(999ms);
  EXPECT_EQ(taken(), Lines{});
  scheduler.advance(1ms);
  EXPECT_EQ(taken(), Lines{fine});
}

TEST_F(RecordingHealthMonitorTest, TakesAStampOfTheFutureForFresh) {
  start();
  cameraFrame = MediaTime(2000, 1);
  settings.camera = true;
  start();
  pass(20);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"camera":"healthy","screen":"healthy","storage":"healthy"})")});
}

TEST_F(RecordingHealthMonitorTest, CallsASilentMicrophoneQuietAndRecordsOn) {
  settings.microphone = true;
  start();
  pass(7, [&] { hear(Lane::microphone, 0); });
  EXPECT_EQ(taken(), Lines{healthLine(R"({"microphone":"healthy","screen":"healthy","storage":"healthy"})")});
  pass(60, [&] { hear(Lane::microphone, 0); });
  EXPECT_EQ(taken(), Lines{healthLine(R"({"microphone":"quiet","screen":"healthy","storage":"healthy"})")});
  EXPECT_EQ(failures, 0);
  pass(1, [&] { hear(Lane::microphone, 0.5F); });
  EXPECT_EQ(taken(), Lines{healthLine(R"({"microphone":"healthy","screen":"healthy","storage":"healthy"})")});
}

TEST_F(RecordingHealthMonitorTest, CallsAMicrophoneWithoutSamplesStalledAndEnds) {
  settings.microphone = true;
  start();
  pass(2);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"microphone":"healthy","screen":"healthy","storage":"healthy"})")});
  pass(5);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"microphone":"stalled","screen":"healthy","storage":"healthy"})")});
  EXPECT_EQ(failures, 0);
  pass(1);
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(monitor.terminalError(),
            (NativeServiceError{
                NativeErrorCode::microphoneUnavailable,
                "The selected microphone is unavailable. Finalized screen recording segments were preserved.",
                true}));
}

TEST_F(RecordingHealthMonitorTest, NeverEndsForSilentSystemAudio) {
  settings.systemAudio = true;
  start();
  pass(7);
  EXPECT_EQ(taken(),
            Lines{healthLine(R"({"screen":"healthy","storage":"healthy","systemAudio":"healthy"})")});
  pass(100);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"healthy","storage":"healthy","systemAudio":"quiet"})")});
  EXPECT_EQ(failures, 0);
}

TEST_F(RecordingHealthMonitorTest, WatchesTheCameraByItsNewestPicture) {
  settings.camera = true;
  start();
  pass(3, [&] { cameraFrame = clock.now(); });
  EXPECT_EQ(taken(), Lines{healthLine(R"({"camera":"healthy","screen":"healthy","storage":"healthy"})")});
  pass(2); // the newest picture came at 2 s
  EXPECT_EQ(taken(), Lines{healthLine(R"({"camera":"stalled","screen":"healthy","storage":"healthy"})")});
  pass(4);
  EXPECT_EQ(failures, 0);
  pass(1);
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(
      monitor.terminalError(),
      (NativeServiceError{
          NativeErrorCode::cameraUnavailable,
          "The selected camera is unavailable. Finalized screen recording segments were preserved.", true}));
}

TEST_F(RecordingHealthMonitorTest, DoesNotJudgeLanesThatAreOff) {
  cameraFrame = MediaTime::zero();
  start();
  pass(30);
  EXPECT_EQ(taken(), Lines{fine});
}

TEST_F(RecordingHealthMonitorTest, InspectsALaneFourTimesASecondAtMost) {
  settings.systemAudio = true;
  start();
  hear(Lane::systemAudio, 0); // at 0 s, inspected
  clock.advance(249ms);
  hear(Lane::systemAudio, 0.5F); // not inspected
  pass(8);
  EXPECT_EQ(taken(),
            (Lines{healthLine(R"({"screen":"healthy","storage":"healthy","systemAudio":"healthy"})"),
                   healthLine(R"({"screen":"healthy","storage":"healthy","systemAudio":"quiet"})")}));
  hear(Lane::systemAudio, 0);
  clock.advance(250ms);
  hear(Lane::systemAudio, 0.5F); // inspected again
  pass(1);
  EXPECT_EQ(taken(),
            Lines{healthLine(R"({"screen":"healthy","storage":"healthy","systemAudio":"healthy"})")});
}

TEST_F(RecordingHealthMonitorTest, InspectsEachLaneByItself) {
  settings.systemAudio = true;
  settings.microphone = true;
  start();
  pass(10, [&] {
    hear(Lane::systemAudio, 0);
    hear(Lane::microphone, 0.5F);
  });
  EXPECT_EQ(taken().back(), healthLine(R"({"microphone":"healthy","screen":"healthy","storage":"healthy",)"
                                       R"("systemAudio":"quiet"})"));
}

TEST_F(RecordingHealthMonitorTest, EndsBeforeTheDiskIsFull) {
  start();
  files.setAvailableBytes(256 * mib);
  pass(1);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"healthy","storage":"low"})")});
  files.setAvailableBytes(256 * mib - 1);
  pass(1);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"healthy","storage":"critical"})")});
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(
      monitor.terminalError(),
      (NativeServiceError{
          NativeErrorCode::recordingStorageLow,
          "Recording stopped before storage filled. Recording sources were retained for recovery.", true}));
}

TEST_F(RecordingHealthMonitorTest, CountsRegularSegmentFilesOnly) {
  const auto sparse = [&](const std::string& name, std::uint64_t bytes) {
    directory.write(name, "");
    std::filesystem::resize_file(directory / name, bytes);
  };
  sparse("segments/segment-0000.mp4", 64 * mib);
  sparse("segments/segment-0001.mp4", 36 * mib);
  sparse("segments/notes.txt", 1024 * mib);
  sparse("segments/mp4", 1024 * mib);
  sparse("segments/.mp4", 1024 * mib);
  sparse("elsewhere.mp4", 1024 * mib);
  std::filesystem::create_directory(directory / "segments/folder.mp4");
  std::filesystem::create_symlink(directory / "elsewhere.mp4", directory / "segments/link.mp4");
  start();
  files.setAvailableBytes(328 * mib); // twice 100 MiB and 128 MiB
  pass(1);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"healthy","storage":"low"})")});
  files.setAvailableBytes(328 * mib - 1);
  pass(1);
  EXPECT_EQ(failures, 1);
}

TEST_F(RecordingHealthMonitorTest, KnowsWhenItDoesNotKnowTheStorage) {
  const std::string unknown = healthLine(R"({"screen":"healthy","storage":"unknown"})");
  directory.write("segments/segment-0000.mp4", "x");
  const std::string hidden = directory / "segments/segment-0000.mp4";
  for (const FileOperation operation : {FileOperation::space, FileOperation::list, FileOperation::info}) {
    start();
    files.failNth(operation, 1, EIO);
    pass(1);
    EXPECT_EQ(taken(), Lines{unknown});
    pass(1);
    EXPECT_EQ(taken(), Lines{fine});
  }
  // A file that goes while its neighbours are counted.
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::info)
      std::filesystem::remove(hidden);
  });
  start();
  pass(1);
  EXPECT_EQ(taken(), Lines{unknown});
  files.setObserver({});
  std::filesystem::remove(directory / "segments");
  start();
  pass(1);
  EXPECT_EQ(taken(), Lines{unknown});
  EXPECT_EQ(failures, 0);
}

TEST_F(RecordingHealthMonitorTest, GivesUpOnMoreThan4096Entries) {
  for (int i = 0; i < 4096; ++i)
    directory.write("segments/" + std::to_string(i), "");
  start();
  pass(1);
  EXPECT_EQ(taken(), Lines{fine});
  directory.write("segments/4096", "");
  pass(1);
  EXPECT_EQ(taken(), Lines{healthLine(R"({"screen":"healthy","storage":"unknown"})")});
}

TEST_F(RecordingHealthMonitorTest, EndsWhenTheHostCannotBeToldAndSaysSoOnce) {
  outputBroken = true;
  files.setAvailableBytes(0); // critical too, but the broken output came first
  start();
  pass(1);
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(monitor.terminalError(),
            (NativeServiceError{NativeErrorCode::recordingFailed,
                                "The screen recording could not be completed.", true}));
  pass(3);
  EXPECT_EQ(failures, 1);
}

TEST_F(RecordingHealthMonitorTest, PutsStorageBeforeMicrophoneBeforeCameraBeforeScreen) {
  struct Row {
    bool storage, microphone, camera;
    NativeErrorCode code;
  };
  using enum NativeErrorCode;
  for (const Row& row :
       {Row{true, true, true, recordingStorageLow}, Row{false, true, true, microphoneUnavailable},
        Row{false, false, true, cameraUnavailable}, Row{false, false, false, recordingScreenStalled}}) {
    RecordingHealthMonitor fresh(clock, files, scheduler.queueFactory());
    settings.microphone = row.microphone;
    settings.camera = row.camera;
    files.setAvailableBytes(4096 * mib);
    fresh.start(settings, nullptr, directory.path(), "S", writer, [] {});
    scheduler.advance(7s);
    EXPECT_EQ(fresh.terminalError(), std::nullopt);
    if (row.storage)
      files.setAvailableBytes(0);
    scheduler.advance(1s);
    ASSERT_TRUE(fresh.terminalError());
    EXPECT_EQ(fresh.terminalError()->code, row.code);
  }
}

TEST_F(RecordingHealthMonitorTest, KeepsTheFirstFailureAcrossStopAndStart) {
  start();
  scheduler.advance(8s);
  EXPECT_EQ(failures, 1);
  monitor.stop();
  taken();
  files.setAvailableBytes(0);
  start();
  pass(5);
  EXPECT_EQ(monitor.terminalError()->code, NativeErrorCode::recordingScreenStalled);
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(taken(), Lines{});
}

TEST_F(RecordingHealthMonitorTest, MayBeStoppedBeforeItWasStarted) {
  monitor.stop();
  EXPECT_EQ(monitor.terminalError(), std::nullopt);
}

} // namespace
} // namespace tessarin
