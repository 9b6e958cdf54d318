// Sessions under the watch of the health monitor: sources that go silent without ending. The clock is turned
// by hand while the session waits for a line on a thread of its own.

#include "support/RecordingServiceTesting.hpp"

#include <future>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

std::string healthLine(const std::string& health) {
  return R"({"event":"healthChanged","health":)" + health + R"(,"schemaVersion":2,"sessionId":"ID"})";
}

const std::string allHealthy = healthLine(
    R"({"camera":"healthy","microphone":"healthy","screen":"healthy","storage":"healthy","systemAudio":"healthy"})");

class RecordingServiceHealthTest : public ::testing::Test {
 protected:
  RecordingServiceHealthTest() {
    rig.use(true, true, true);
    rig.files.setAvailableBytes(std::uint64_t{4096} * 1'048'576);
  }
  ~RecordingServiceHealthTest() override { join(); }

  // Returns when the session, behind the steps before, waits for a line under watch. The next step, if there
  // is one, is what it does behind that line.
  void startAndWait(const std::function<void()>& next = nullptr) {
    rig.then([this] { reached_.set_value(); });
    if (next)
      rig.then(next);
    session_ = std::thread([this] { status = rig.run(); });
    reached_.get_future().wait();
    while (rig.scheduler.timerCount() < 3) // the camera's panel, the writer's heartbeat and the watch
      std::this_thread::yield();
  }
  // Seconds pass; what delivers does so at the start of each, the stream is still.
  void pass(int seconds, const std::function<void()>& deliver) {
    for (int i = 0; i < seconds; ++i) {
      deliver();
      rig.scheduler.advance(1s);
    }
  }
  void hear(ScriptedDevice& device, float value) {
    device.deliver(steadySample(value, 480, rig.clock.now()));
  }
  void see() { rig.camera().deliver(numberedCameraFrame(1, 64, 48, rig.clock.now())); }
  void join() {
    if (session_.joinable())
      session_.join();
  }

  RecordingRig rig;
  std::int32_t status = -1;

 private:
  std::promise<void> reached_;
  std::thread session_;
};

TEST_F(RecordingServiceHealthTest, EveryLaneIsWatched) {
  startAndWait();
  pass(20, [&] {
    hear(rig.microphone(), 0.5F);
    hear(rig.systemAudio(), 0.5F);
    see();
  });
  rig.send("stop");
  join();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(rig.events(), Contains(allHealthy).Times(1));
  EXPECT_THAT(rig.events(), Contains(HasSubstr("healthChanged")).Times(1));
}

TEST_F(RecordingServiceHealthTest, SilenceIsQuietAndNoReasonToEnd) {
  startAndWait();
  pass(60, [&] {
    hear(rig.microphone(), 0);
    see(); // and the computer's sound does not even deliver
  });
  rig.send("stop");
  join();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(
      rig.events(),
      Contains(healthLine(
          R"({"camera":"healthy","microphone":"quiet","screen":"healthy","storage":"healthy","systemAudio":"quiet"})")));
  EXPECT_THAT(rig.events(), Not(Contains(HasSubstr("stalled"))));
}

TEST_F(RecordingServiceHealthTest, AMicrophoneThatDeliversNothingEndsTheSession) {
  startAndWait();
  pass(8, [&] {
    hear(rig.systemAudio(), 0.5F);
    see();
  });
  join();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(rig.events(), Contains(HasSubstr(R"("microphone":"stalled")")));
  EXPECT_EQ(rig.lastEvent(), microphoneUnavailable);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "microphoneUnavailable"));
  EXPECT_EQ(manifestSegments(rig).size(), 1U);
  expectQuiet(rig);
}

TEST_F(RecordingServiceHealthTest, ACameraThatDeliversNothingEndsTheSession) {
  startAndWait();
  pass(8, [&] {
    hear(rig.microphone(), 0.5F);
    hear(rig.systemAudio(), 0.5F);
  });
  join();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(rig.events(), Contains(HasSubstr(R"("camera":"stalled")")));
  EXPECT_EQ(rig.lastEvent(), cameraUnavailable);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "cameraUnavailable"));
  EXPECT_EQ(manifestSegments(rig).size(), 1U) << "its last picture was repeated meanwhile";
  expectQuiet(rig);
}

TEST_F(RecordingServiceHealthTest, WhatTheMonitorFoundBeatsAMicrophoneThatEndsWithIt) {
  rig.onEvent = [&](const std::string& event) {
    if (event.find("\"critical\"") != std::string::npos)
      rig.microphone().end();
  };
  startAndWait();
  rig.files.setAvailableBytes(1000);
  pass(1, [] {});
  join();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(rig.lastEvent(), HasSubstr("recordingStorageLow"));
}

TEST_F(RecordingServiceHealthTest, AMicrophoneThatHasEndedIsKnownBeforeItIsMissed) {
  startAndWait();
  rig.microphone().end();
  join();
  EXPECT_EQ(status, 1);
  EXPECT_EQ(rig.lastEvent(), microphoneUnavailable);
  EXPECT_THAT(rig.events(), Not(Contains(HasSubstr("healthChanged"))));
}

TEST_F(RecordingServiceHealthTest, AResumeWhileRecordingLeavesTheWatchAlone) {
  std::promise<void> resumed;
  startAndWait([&] { resumed.set_value(); });
  const auto all = [&] {
    hear(rig.microphone(), 0.5F);
    hear(rig.systemAudio(), 0.5F);
    see();
  };
  pass(2, all);
  rig.send("resume");
  resumed.get_future().wait();
  EXPECT_EQ(rig.scheduler.timerCount(), 3U) << "of the writer, the watch and the camera's panel";
  pass(2, all);
  EXPECT_THAT(rig.events(), Contains(allHealthy).Times(1)) << "a watch that begins anew reports anew";
  pass(8, [] {});
  join();
  EXPECT_EQ(rig.lastEvent(), microphoneUnavailable) << "it goes on";
}

TEST_F(RecordingServiceHealthTest, AnHourOfPauseIsNoStallOfAnyLane) {
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.clock.advance(1h);
    rig.send("resume");
  });
  startAndWait();
  pass(2, [] {});
  rig.send("stop");
  join();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(rig.events(), Contains(allHealthy));
  EXPECT_THAT(rig.events(), Not(Contains(AllOf(HasSubstr("healthChanged"), HasSubstr("stalled")))));
}

} // namespace
} // namespace tessarin
