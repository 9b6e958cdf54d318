// Recordings of all sources by the built program whose servers die: that of the display, that of sound and
// cameras, and the window manager. Each says why it ends, or goes on, and keeps what it has recorded.

#include "AllSourcesFixture.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::Matcher;

// No death keeps a session waiting for more than the 8 seconds after which a source without a word counts as
// gone, with the second between two looks; the rest is for closing, joining and checking on a busy machine.
constexpr std::chrono::seconds longestEnd = 15s;

constexpr const char* displayGone = "recordingFailed at unexpected-stream-stop";
constexpr const char* soundGone = "microphoneUnavailable at unexpected-stream-stop";

enum class Server { display, sound };

std::string nameOf(Server server) {
  return server == Server::display ? "Display" : "Sound";
}

class RecordingServersTest : public AllSourcesFixture {
 protected:
  void kill(Server server) {
    if (server == Server::display)
      desktop.killServer();
    else
      sound.killServer();
  }

  // Returns when a thread of the program has the name, which tells how far its start-up has come.
  static void awaitThread(RecordingProcess& recording, const std::string& name) {
    const std::string tasks = "/proc/" + std::to_string(recording.process().pid()) + "/task";
    ASSERT_TRUE(becomes([&] {
      std::error_code none;
      for (const auto& task : std::filesystem::directory_iterator(tasks, none)) {
        std::string comm;
        std::getline(std::ifstream(task.path() / "comm"), comm);
        if (comm == name)
          return true;
      }
      return false;
    })) << name;
  }
  static void awaitFile(const std::string& path) {
    ASSERT_TRUE(becomes([&] { return std::filesystem::exists(path); })) << path;
  }

  static void pause(RecordingProcess& recording) {
    recording.send("pause");
    recording.waitFor("paused");
  }
};

// In start-up: nothing is recorded yet.

TEST_F(RecordingServersTest, TheDisplayDiesAtTheFirstQuestion) {
  ASSERT_EQ(::kill(desktop.serverPid(), SIGSTOP), 0);
  const auto recording = record();
  std::this_thread::sleep_for(500ms);
  kill(Server::display);
  EXPECT_EQ(endOf(*recording, longestEnd), "permissionDenied at prepare-request");
}

TEST_F(RecordingServersTest, TheSoundServerDiesWhileTheMicrophoneStarts) {
  sound.stopAnswering();
  const auto recording = record();
  awaitThread(*recording, "tessarin-sound");
  kill(Server::sound);
  EXPECT_EQ(endOf(*recording, longestEnd), "microphoneUnavailable at microphone-start");
}

TEST_F(RecordingServersTest, TheSoundServerDiesWhileTheCameraStarts) {
  camera->freeze();
  const auto recording = record();
  awaitThread(*recording, "camera");
  kill(Server::sound);
  EXPECT_EQ(endOf(*recording, longestEnd), "cameraUnavailable at camera-start");
}

TEST_F(RecordingServersTest, TheDisplayDiesWhileTheCameraStarts) {
  camera->freeze();
  const auto recording = record();
  awaitThread(*recording, "camera");
  kill(Server::display);
  camera->thaw();
  EXPECT_EQ(endOf(*recording, longestEnd), "contentUnavailable at camera-overlay");
}

class RecordingServerDies : public RecordingServersTest, public testing::WithParamInterface<Server> {
 protected:
  Server server() const { return GetParam(); }
  // What is told where nothing else has come of the death yet.
  std::string gone() const { return server() == Server::display ? displayGone : soundGone; }
  // The same, or the failure of the step under way.
  Matcher<std::string> goneAt(const std::string& stage) const {
    if (server() == Server::sound)
      return AnyOf(soundGone, "microphoneUnavailable at " + stage, "cameraUnavailable at " + stage);
    return AnyOf(displayGone, "recordingFailed at " + stage, "recordingScreenStalled at " + stage);
  }
};

TEST_P(RecordingServerDies, BeforeTheFirstPicture) {
  const auto recording = record();
  awaitFile(segment(0));
  kill(server());
  EXPECT_THAT(endOf(*recording, longestEnd),
              AnyOf(goneAt("start-capture"), "recordingFailed at start-capture"));
}

TEST_P(RecordingServerDies, WhileRecording) {
  const auto recording = record();
  recordAWhile(*recording);
  kill(server());
  EXPECT_EQ(endOf(*recording, longestEnd), gone());
  // With the camera gone as well, whether the segment is finished depends on the screen's next picture.
  if (server() == Server::display)
    expectFinishedSegments(1);
  EXPECT_GE(recoveredMs(), 900);
}

TEST_P(RecordingServerDies, DuringAPause) {
  const auto recording = record();
  recordAWhile(*recording);
  recording->send("pause");
  recording->waitFor("pausing");
  kill(server());
  EXPECT_THAT(endOf(*recording, longestEnd), goneAt("pause-finalize"));
  expectFinishedSegments(1);
  EXPECT_GE(recoveredMs(), 900);
}

TEST_P(RecordingServerDies, WhilePaused) {
  const auto recording = record();
  recordAWhile(*recording);
  pause(*recording);
  kill(server());
  EXPECT_EQ(endOf(*recording, longestEnd), gone());
  expectFinishedSegments(1);
  EXPECT_GE(recoveredMs(), 900);
}

TEST_P(RecordingServerDies, DuringAResume) {
  const auto recording = record();
  recordAWhile(*recording);
  pause(*recording);
  recording->send("resume");
  recording->waitFor("resuming");
  kill(server());
  EXPECT_THAT(endOf(*recording, longestEnd), goneAt("resume-start"));
  EXPECT_GE(manifestSegments(session()).size(), 1U);
  EXPECT_GE(recoveredMs(), 900);
}

// What has to be done for a stop needs neither of them.
TEST_P(RecordingServerDies, DuringAStop) {
  const auto recording = record();
  recordAWhile(*recording);
  pause(*recording);
  recording->send("resume");
  recording->waitForEvent("healthChanged");
  recording->send("stop");
  recording->waitFor("stopping");
  kill(server());
  EXPECT_THAT(endOf(*recording, longestEnd), AnyOf("completed", "recordingFailed at stop-finalize",
                                                   "recordingFailed at stop-parallel-validate"));
  expectFinishedSegments(2);
  EXPECT_GE(recoveredMs(), 1900);
}

TEST_P(RecordingServerDies, DuringAStopOfAPausedSession) {
  const auto recording = record();
  recordAWhile(*recording);
  pause(*recording);
  recording->send("stop");
  recording->waitFor("stopping");
  kill(server());
  EXPECT_EQ(endOf(*recording, longestEnd), "completed");
  expectFinishedSegments(1);
  EXPECT_GE(recoveredMs(), 900);
}

TEST_P(RecordingServerDies, AndTheOtherRightBehind) {
  const auto recording = record();
  recordAWhile(*recording);
  kill(server());
  kill(server() == Server::display ? Server::sound : Server::display);
  EXPECT_THAT(endOf(*recording, longestEnd), AnyOf(displayGone, soundGone));
  EXPECT_GE(recoveredMs(), 900);
}

INSTANTIATE_TEST_SUITE_P(Servers, RecordingServerDies, testing::Values(Server::display, Server::sound),
                         [](const auto& row) { return nameOf(row.param); });

// A window manager ends nothing, and one that comes in its place is not waited for.
TEST_F(RecordingServersTest, TheWindowManagerDiesTwice) {
  const auto recording = record();
  recordAWhile(*recording);
  desktop.killWindowManager();
  std::this_thread::sleep_for(200ms);
  auto another = desktop.start({"openbox"});
  desktop.waitFor("window-manager");
  another->end(SIGKILL);
  std::this_thread::sleep_for(200ms);
  pause(*recording);
  recording->send("resume");
  recording->waitForEvent("healthChanged");
  recording->send("stop");
  EXPECT_EQ(endOf(*recording, longestEnd), "completed");
  expectFinishedSegments(2);
  EXPECT_GE(recoveredMs(), 1900);
}

} // namespace
} // namespace tessarin
