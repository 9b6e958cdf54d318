// Recordings that were killed, and what the built program makes of them afterwards, without a display.

#include "DesktopFixture.hpp"
#include "ReadableMovie.hpp"
#include "RecordingProcess.hpp"

#include "support/PrivateSoundServer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <random>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
constexpr std::int64_t toleranceMs = 250;

std::int64_t integer(const json::Value& value) {
  return value.signedInteger(0, std::numeric_limits<std::int64_t>::max());
}

class RecoveryProgramTest : public DesktopFixture {
 protected:
  RecoveryProgramTest() { std::filesystem::create_directory(session()); }

  std::string session() const { return directory / sessionID; }
  std::string at(const std::string& name) const { return session() + '/' + name; }
  std::string segment(int index) const { return at("segments/segment-000" + std::to_string(index) + ".mp4"); }

  RecordingProcess record(bool hasSources, RecordingProcess::Environment environment = {}) const {
    const std::string flag = hasSources ? "true," : "false,";
    environment.emplace_back("DISPLAY", desktop.display());
    return {sessionID,
            R"({"sessionId":")" + sessionID + R"(","kind":"region","displayId":")" + displayID() +
                R"(","rectPoints":{"x":0,"y":0,"width":320,"height":240},"outputDirectory":")" + session() +
                R"(","settings":{"microphone":)" + flag + R"("systemAudio":)" + flag + R"("camera":)" + flag +
                R"("cameraPosition":"bottomRight","showsCursor":false,"showMouseClicks":false,)"
                R"("frameRate":15,"quality":"standard","outputScale":"original"}})",
            environment};
  }
  static void waitUntilReadable(const std::string& path) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (readableMs(path) == 0) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << path;
      std::this_thread::sleep_for(5ms);
    }
  }
  static void kill(ChildProcess& process) {
    ASSERT_TRUE(process.isRunning());
    ASSERT_EQ(::kill(process.pid(), SIGKILL), 0);
    process.waitForEnd();
  }

  // The command's arguments; the segments by their numbers.
  std::vector<std::string> recoveryOf(const std::vector<int>& segments, bool hasSources) const {
    std::string paths;
    for (const int index : segments)
      paths += (paths.empty() ? "\"" : ",\"") + segment(index) + '"';
    const std::string flag = hasSources ? "true" : "false";
    return withRequest("recover-recording", R"({"sessionId":")" + sessionID + R"(","outputDirectory":")" +
                                                session() + R"(","segmentPaths":[)" + paths +
                                                R"(],"recoverCamera":)" + flag + R"(,"recoverSystemAudio":)" +
                                                flag + R"(,"recoverMicrophone":)" + flag + "}");
  }
  std::string recover(const std::vector<int>& segments, bool hasSources) const {
    const ProgramResult result = runProgram(recoveryOf(segments, hasSources));
    EXPECT_EQ(result.exitStatus, 0) << result.output << result.diagnostics;
    return result.output;
  }

  std::map<std::string, std::string> segmentBytes() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(at("segments")))
      found[entry.path().filename().string()] =
          directory.read(sessionID + "/segments/" + entry.path().filename().string());
    return found;
  }
  std::vector<std::string> hiddenNames() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(session()))
      if (entry.path().filename().string()[0] == '.')
        found.push_back(entry.path().filename().string());
    return found;
  }
  // Every file of the answer decodes without a complaint and lasts as long as it says; the tracks' lengths.
  std::map<std::string, std::int64_t> checked(const std::string& answer) const {
    const json::Document reply(answer);
    const json::Value data = *reply.root().member("data");
    std::map<std::string, std::int64_t> lengths;
    for (const char* const list : {"tracks", "deliverables"}) {
      const json::Value entries = *data.member(list);
      for (std::size_t i = 0; i < entries.arraySize(); ++i) {
        const std::string path = entries.at(i).member("path")->string();
        const std::int64_t told = integer(*entries.at(i).member("durationMs"));
        lengths[entries.at(i).member("id")->string()] = told;
        EXPECT_EQ(
            desktop.run({"bash", "-c", "ffmpeg -nostdin -v error -xerror -i \"$0\" -f null - 2>&1", path}),
            "")
            << path;
        const double read = std::stod(desktop.run(
            {"ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", path}));
        EXPECT_NEAR(read * 1000, static_cast<double>(told), 50) << path;
        EXPECT_EQ(integer(*entries.at(i).member("sizeBytes")),
                  static_cast<std::int64_t>(std::filesystem::file_size(path)));
      }
    }
    return lengths;
  }
  void removeOutputs() const {
    for (const char* const name :
         {"recording.mp4", "screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a"})
      std::filesystem::remove(at(name));
  }

  TemporaryDirectory directory;
  const std::unique_ptr<TestClient> animation =
      desktop.client({"--style", "override", "--paint", "counter", "--fps", "15", "--size", "320x240"});
};

TEST_F(RecoveryProgramTest, AKilledRecordingIsThereUpToItsLastFragment) {
  RecordingProcess recording = record(false);
  recording.waitFor("recording");
  waitUntilReadable(segment(0));
  kill(recording.process());
  EXPECT_FALSE(std::filesystem::exists(at("native-manifest.json"))) << "no segment was finished";
  const std::int64_t left = readableMs(segment(0));
  EXPECT_GE(left, 900);
  const auto before = segmentBytes();

  const std::string answer = recover({0}, false);
  EXPECT_THAT(checked(answer), ElementsAre(std::pair("screen", left), std::pair("share-video", left)));
  EXPECT_EQ(segmentBytes(), before);
  EXPECT_THAT(hiddenNames(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(at("native-manifest.json"))) << "a recovery writes none";
  EXPECT_EQ(recover({0}, false), answer) << "again";
}

TEST_F(RecoveryProgramTest, ARecordingThatWasKilledBeforeItsFirstFragmentCannotBeRecovered) {
  RecordingProcess recording = record(false);
  recording.waitFor("recording");
  kill(recording.process());
  ASSERT_EQ(readableMs(segment(0)), 0);
  const ProgramResult result = runProgram(recoveryOf({0}, false));
  EXPECT_EQ(result.output,
            failureReply("recordingMergeFailed", "The finalized recording segments could not be recovered."));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(hiddenNames(), IsEmpty());
}

class KilledWithAllSources : public RecoveryProgramTest {
 protected:
  // A first segment that was finished by a pause, and a second that was not.
  void recordAndKill() {
    RecordingProcess recording = record(true, sound.environment());
    recording.waitForEvent("healthChanged"); // a second has been recorded
    recording.send("pause");
    recording.waitFor("paused");
    recording.send("resume");
    recording.waitFor("recording");
    waitUntilReadable(segment(1));
    kill(recording.process());
    lengths = {readableMs(segment(0)), readableMs(segment(1))};
    before = segmentBytes();
  }
  void expectEverything(const std::string& answer, std::int64_t milliseconds) const {
    const auto found = checked(answer);
    EXPECT_THAT(found, SizeIs(5));
    for (const auto& [id, length] : found)
      EXPECT_NEAR(static_cast<double>(length), static_cast<double>(milliseconds), toleranceMs) << id;
    EXPECT_EQ(segmentBytes(), before);
    EXPECT_THAT(hiddenNames(), IsEmpty());
  }

  PrivateSoundServer sound;
  std::unique_ptr<TestSource> player = sound.source({"player", "--amplitude", "0.25"});
  std::unique_ptr<TestSource> microphone = sound.source({"microphone", "--amplitude", "0.25"});
  std::unique_ptr<TestSource> camera = sound.source({"camera"});
  std::vector<std::int64_t> lengths;
  std::map<std::string, std::string> before;
};

TEST_F(KilledWithAllSources, TheManifestsSegmentsOrAllOfThemCanBeRecovered) {
  recordAndKill();
  const std::string manifest = directory.read(sessionID + "/native-manifest.json");
  const json::Document listed(manifest);
  ASSERT_EQ(listed.root().member("segments")->arraySize(), 1U);
  EXPECT_EQ(listed.root().member("segments")->at(0).member("path")->string(), segment(0));
  EXPECT_EQ(integer(*listed.root().member("segments")->at(0).member("durationMs")), lengths[0]);

  const std::string first = recover({0}, true);
  expectEverything(first, lengths[0]);
  EXPECT_EQ(recover({0}, true), first);
  removeOutputs();
  const std::string all = recover({0, 1}, true);
  expectEverything(all, lengths[0] + lengths[1]);
  EXPECT_EQ(recover({0, 1}, true), all);
  EXPECT_EQ(directory.read(sessionID + "/native-manifest.json"), manifest);
}

TEST_F(KilledWithAllSources, ARecoveryMayBeKilledAtAnyMomentAndRunAgain) {
  recordAndKill();
  const auto started = std::chrono::steady_clock::now();
  const std::string expected = recover({0, 1}, true);
  const std::chrono::microseconds wholeRun =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started);
  std::vector<std::string> arguments = recoveryOf({0, 1}, true);
  arguments.insert(arguments.begin(), TESSARIN_PROGRAM);
  std::minstd_rand random(20);
  int killedWithinWork = 0;
  for (int run = 0; run < 40; ++run) {
    SCOPED_TRACE(run);
    removeOutputs();
    {
      ChildProcess recovery(arguments, {});
      std::this_thread::sleep_for(wholeRun * (random() % 1000) / 1000);
      ::kill(recovery.pid(), SIGKILL);
      recovery.waitForEnd();
    }
    const bool hasBegun = std::filesystem::exists(at("screen.mp4")) || !hiddenNames().empty();
    killedWithinWork += hasBegun && !std::filesystem::exists(at("recording.mp4")) ? 1 : 0;
    EXPECT_EQ(segmentBytes(), before);
    EXPECT_EQ(recover({0, 1}, true), expected);
    EXPECT_THAT(hiddenNames(), IsEmpty());
  }
  RecordProperty("killedWithinWork", killedWithinWork);
  EXPECT_GT(killedWithinWork, 0) << "none of the kills has met the work";
  expectEverything(expected, lengths[0] + lengths[1]);
}

} // namespace
} // namespace tessarin
