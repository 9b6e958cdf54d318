#include "DesktopFixture.hpp"
#include "RecordingProcess.hpp"

#include "support/FlashAndBeep.hpp"
#include "support/PrivateSoundServer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <filesystem>
#include <sstream>

namespace tessarin {
namespace {

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

// What happens together is together in the finished files, from the start to the end and over a pause.
class SyncTest : public DesktopFixture {
 protected:
  SyncTest() { std::filesystem::create_directory(session()); }

  std::string session() const { return directory / sessionID; }
  std::string request() const {
    return R"({"sessionId":")" + sessionID + R"(","kind":"display","displayId":")" + displayID() +
           R"(","rectPoints":{"x":0,"y":0,"width":800,"height":600},"outputDirectory":")" + session() +
           R"(","settings":{"microphone":true,"systemAudio":true,"camera":false,)"
           R"("cameraPosition":"bottomRight","showsCursor":false,"showMouseClicks":false,"frameRate":30,)"
           R"("quality":"standard","outputScale":"original"}})";
  }
  RecordingProcess::Environment environment() const {
    auto variables = sound.environment();
    variables.emplace_back("DISPLAY", desktop.display());
    return variables;
  }
  // Flashes and beeps for so long, one each two and a bit seconds.
  void play(std::chrono::seconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1700));
      flashAndBeep(*window, {player.get(), microphone.get()});
      ++flashes;
    }
  }
  // As far apart as flash and beep ever are in the files, in milliseconds.
  double worst(const std::string& file) const {
    const std::string told =
        desktop.run({TESSARIN_AV_SYNC, session() + "/recording.mp4", "--audio", session() + "/" + file});
    std::istringstream words(told.substr(told.rfind("pairs")));
    std::string word;
    int pairs = 0;
    double result = 0;
    words >> word >> pairs >> word >> result;
    EXPECT_EQ(pairs, flashes) << told;
    return result;
  }

  TemporaryDirectory directory;
  PrivateSoundServer sound;
  const std::unique_ptr<TestClient> animation =
      desktop.client({"--style", "override", "--paint", "counter", "--fps", "30", "--size", "320x240"});
  const std::unique_ptr<TestClient> window =
      desktop.client({"--style", "override", "--colour", "ff000000", "--size", "800x300", "--at", "0,300"});
  const std::unique_ptr<TestSource> player = sound.source({"player"});
  const std::unique_ptr<TestSource> microphone = sound.source({"microphone"});
  int flashes = 0;
};

TEST_F(SyncTest, FlashAndBeepAreTogetherForAMinuteWithAPauseInIt) {
  RecordingProcess recording(sessionID, request(), environment());
  recording.waitFor("recording");
  play(std::chrono::seconds(20));
  recording.send("pause");
  recording.waitFor("paused");
  std::this_thread::sleep_for(std::chrono::milliseconds(1300));
  recording.send("resume");
  recording.waitFor("recording");
  play(std::chrono::seconds(40));
  recording.send("stop");
  const json::Document completed = recording.waitForEvent("completed");
  EXPECT_EQ(recording.process().waitForEnd(), 0);
  EXPECT_GE(completed.root().member("clock")->member("programDurationMs")->number(), 60'000);

  EXPECT_LT(worst("recording.mp4"), 40); // its first sound, the computer's
  EXPECT_LT(worst("system-audio.m4a"), 40);
  EXPECT_LT(worst("microphone.m4a"), 40);
}

} // namespace
} // namespace tessarin
