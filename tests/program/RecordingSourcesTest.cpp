// Recordings of all sources by the built program: what is left of one whose sources or servers go, and the
// finished files of one that was paused.

#include "DesktopFixture.hpp"
#include "RecordedFiles.hpp"
#include "RecordingProcess.hpp"

#include "support/PrivateSoundServer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

namespace tessarin {
namespace {

using ::testing::ElementsAre;

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

const std::string microphoneGone =
    "The selected microphone is unavailable. Finalized screen recording segments were preserved.";
const std::string cameraGone =
    "The selected camera is unavailable. Finalized screen recording segments were preserved.";
const std::string couldNotBeCompleted = "The screen recording could not be completed.";

struct Lanes {
  bool systemAudio = false;
  bool microphone = false;
  bool camera = false;
};

// A track of a file as an independent reader sees it.
struct ReadTrack {
  std::string kind;
  double milliseconds = 0;
};

class RecordingSourcesTest : public DesktopFixture {
 protected:
  RecordingSourcesTest() { std::filesystem::create_directory(session()); }

  std::string session() const { return directory / sessionID; }

  RecordingProcess record(const Lanes& lanes) const {
    const auto flag = [](const std::string& name, bool isOn) {
      return "\"" + name + "\":" + (isOn ? "true" : "false") + ",";
    };
    auto environment = sound.environment();
    environment.emplace_back("DISPLAY", desktop.display());
    return {sessionID,
            R"({"sessionId":")" + sessionID + R"(","kind":"display","displayId":")" + displayID() +
                R"(","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputDirectory":")" + session() +
                R"(","settings":{)" + flag("systemAudio", lanes.systemAudio) +
                flag("microphone", lanes.microphone) + flag("camera", lanes.camera) +
                R"("cameraPosition":"bottomRight","showsCursor":false,"showMouseClicks":false,)"
                R"("frameRate":30,"quality":"standard","outputScale":"original"}})",
            environment};
  }

  // Follows the recording to its end, which is a failure, and which comes before long.
  static void expectFailure(RecordingProcess& recording, const std::string& code,
                            const std::string& message) {
    const json::Document failed = recording.waitForEvent("failed");
    const json::Value error = *failed.root().member("error");
    EXPECT_EQ(error.member("code")->string(), code);
    EXPECT_EQ(error.member("message")->string(), message);
    EXPECT_TRUE(error.member("recoverable")->boolean());
    EXPECT_EQ(recording.waitForEnd(), 1);
  }

  // The files that the manifest lists.
  std::vector<std::string> finishedSegments() const {
    std::vector<std::string> paths;
    for (const ManifestSegment& segment : manifestSegments(session()))
      paths.push_back(segment.path);
    return paths;
  }

  std::vector<ReadTrack> tracksOf(const std::string& path) const {
    std::istringstream lines(desktop.run(
        {"ffprobe", "-v", "error", "-show_entries", "stream=codec_type,duration", "-of", "csv=p=0", path}));
    std::vector<ReadTrack> tracks;
    for (std::string line; std::getline(lines, line);) {
      const std::size_t comma = line.find(',');
      tracks.push_back({line.substr(0, comma), std::stod(line.substr(comma + 1)) * 1000});
    }
    return tracks;
  }
  std::vector<std::string> kindsOf(const std::string& path) const {
    std::vector<std::string> kinds;
    for (const ReadTrack& track : tracksOf(path))
      kinds.push_back(track.kind);
    return kinds;
  }
  // Of the first sound of a file from a time on, in milliseconds, to its end; 1 is full scale.
  double peakOf(const std::string& path, double from) const {
    const std::string samples = desktop.run({"ffmpeg", "-v", "error", "-ss", std::to_string(from / 1000),
                                             "-i", path, "-f", "s16le", "-c:a", "pcm_s16le", "-"});
    int peak = 0;
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
      const auto low = static_cast<std::uint8_t>(samples[i]);
      const auto high = static_cast<std::uint8_t>(samples[i + 1]);
      peak = std::max(peak, std::abs(static_cast<std::int16_t>(low | high << 8)));
    }
    return peak / 32768.0;
  }

  const std::vector<std::string> fourTracks = {"video", "video", "audio", "audio"};

  TemporaryDirectory directory;
  PrivateSoundServer sound;
  const std::unique_ptr<TestClient> animation =
      desktop.client({"--style", "override", "--paint", "counter", "--fps", "30", "--size", "320x240"});
  std::unique_ptr<TestSource> player = sound.source({"player", "--amplitude", "0.25"});
  std::unique_ptr<TestSource> microphone = sound.source({"microphone", "--amplitude", "0.25"});
  std::unique_ptr<TestSource> camera = sound.source({"camera"});
};

TEST_F(RecordingSourcesTest, AnUnpluggedMicrophoneEndsTheRecordingAndItsSegmentIsKept) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true, .camera = true});
  recording.waitForEvent("healthChanged"); // a second has been recorded
  microphone->unplug();
  expectFailure(recording, "microphoneUnavailable", microphoneGone);
  const std::string segment = session() + "/segments/segment-0000.mp4";
  EXPECT_THAT(finishedSegments(), ElementsAre(segment));
  EXPECT_EQ(kindsOf(segment), fourTracks);
  EXPECT_GE(decodedPictures(segment), 10);
}

TEST_F(RecordingSourcesTest, AnUnpluggedCameraEndsTheRecordingAndItsSegmentsCanBeRead) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true, .camera = true});
  recording.waitForEvent("healthChanged");
  recording.send("pause");
  recording.waitFor("paused");
  recording.send("resume");
  recording.waitForEvent("healthChanged");
  camera->unplug();
  expectFailure(recording, "cameraUnavailable", cameraGone);
  // Whether the second segment could still be finished depends on the screen's next picture.
  const std::vector<std::string> kept = finishedSegments();
  ASSERT_FALSE(kept.empty());
  EXPECT_EQ(kept.front(), session() + "/segments/segment-0000.mp4");
  for (const std::string name : {"segment-0000.mp4", "segment-0001.mp4"}) {
    const std::string segment = session() + "/segments/" + name;
    EXPECT_EQ(kindsOf(segment), fourTracks);
    EXPECT_GE(decodedPictures(segment), 10);
  }
}

TEST_F(RecordingSourcesTest, AMicrophoneThatGoesDuringAPauseEndsTheRecordingAtOnce) {
  RecordingProcess recording = record({.microphone = true});
  recording.waitForEvent("healthChanged");
  recording.send("pause");
  recording.waitFor("paused");
  microphone->unplug();
  expectFailure(recording, "microphoneUnavailable", microphoneGone);
  EXPECT_THAT(finishedSegments(), ElementsAre(session() + "/segments/segment-0000.mp4"));
}

TEST_F(RecordingSourcesTest, ADeadSoundServerEndsARecordingOfTheComputersSound) {
  RecordingProcess recording = record({.systemAudio = true});
  recording.waitForEvent("healthChanged");
  sound.killServer();
  expectFailure(recording, "recordingFailed", couldNotBeCompleted);
  const std::string segment = session() + "/segments/segment-0000.mp4";
  EXPECT_THAT(finishedSegments(), ElementsAre(segment));
  EXPECT_THAT(kindsOf(segment), ElementsAre("video", "audio"));
  EXPECT_GE(decodedPictures(segment), 10);
}

TEST_F(RecordingSourcesTest, ADeadSoundServerIsAMicrophoneThatIsGone) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true});
  recording.waitForEvent("healthChanged");
  sound.killServer();
  expectFailure(recording, "microphoneUnavailable", microphoneGone);
  const std::string segment = session() + "/segments/segment-0000.mp4";
  EXPECT_THAT(finishedSegments(), ElementsAre(segment));
  EXPECT_THAT(kindsOf(segment), ElementsAre("video", "audio", "audio"));
}

// It hands over all at once what it missed.
TEST_F(RecordingSourcesTest, ASoundServerThatStandsStillForAWhileEndsNothing) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true, .camera = true});
  recording.waitForEvent("healthChanged");
  sound.stopAnswering();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  sound.goOn();
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  recording.send("stop");
  recording.waitForEvent("completed");
  EXPECT_EQ(recording.waitForEnd(), 0);
  EXPECT_EQ(kindsOf(session() + "/segments/segment-0000.mp4"), fourTracks);
  const std::string heard = session() + "/microphone.m4a";
  const double length = tracksOf(heard).at(0).milliseconds;
  EXPECT_GE(length, 4000);
  EXPECT_NEAR(peakOf(heard, 200), 0.25, 0.1);
  EXPECT_NEAR(peakOf(heard, length - 300), 0.25, 0.1) << "the microphone is heard again";
}

// Nothing was recorded meanwhile, and all tracks know it.
TEST_F(RecordingSourcesTest, ARecordingThatIsSuspendedForAWhileGoesOnInStep) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true, .camera = true});
  recording.waitFor("recording");
  const auto begin = std::chrono::steady_clock::now(); // its first picture is there
  recording.waitForEvent("healthChanged");
  ASSERT_EQ(::kill(recording.process().pid(), SIGSTOP), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));
  ASSERT_EQ(::kill(recording.process().pid(), SIGCONT), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  const std::chrono::duration<double, std::milli> length = std::chrono::steady_clock::now() - begin;
  recording.send("stop");
  recording.waitForEvent("completed");
  EXPECT_EQ(recording.waitForEnd(), 0);
  const std::vector<ReadTrack> tracks = tracksOf(session() + "/recording.mp4");
  ASSERT_EQ(tracks.size(), 3U);
  for (const ReadTrack& track : tracks) {
    EXPECT_GE(track.milliseconds, length.count() - 70); // a picture at either end
    EXPECT_NEAR(track.milliseconds, tracks[0].milliseconds, 1);
  }
  EXPECT_NEAR(peakOf(session() + "/microphone.m4a", tracks[0].milliseconds - 300), 0.25, 0.1);
}

TEST_F(RecordingSourcesTest, ADeadDisplayServerEndsTheRecordingAndItsSegmentIsKept) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true, .camera = true});
  recording.waitForEvent("healthChanged");
  desktop.killServer();
  expectFailure(recording, "recordingFailed", couldNotBeCompleted);
  EXPECT_THAT(finishedSegments(), ElementsAre(session() + "/segments/segment-0000.mp4"));
}

// Each finished track is as long as the segments' pictures together.
TEST_F(RecordingSourcesTest, APausedRecordingOfAllSourcesEndsWithFilesOfTheSegmentsLength) {
  RecordingProcess recording = record({.systemAudio = true, .microphone = true, .camera = true});
  recording.waitForEvent("healthChanged");
  recording.send("pause");
  recording.waitFor("paused");
  recording.send("resume");
  recording.waitForEvent("healthChanged");
  recording.send("stop");
  const json::Document completed = recording.waitForEvent("completed");
  EXPECT_EQ(recording.waitForEnd(), 0);

  double sum = 0;
  ASSERT_EQ(finishedSegments().size(), 2U);
  for (const std::string& segment : finishedSegments()) {
    EXPECT_EQ(kindsOf(segment), fourTracks);
    sum += tracksOf(segment).at(0).milliseconds;
  }
  EXPECT_GE(sum, 2000);
  struct Row {
    std::string file;
    std::vector<std::string> kinds;
  };
  for (const Row& row :
       {Row{"screen.mp4", {"video"}}, Row{"camera.mp4", {"video"}}, Row{"system-audio.m4a", {"audio"}},
        Row{"microphone.m4a", {"audio"}}, Row{"recording.mp4", {"video", "audio", "audio"}}}) {
    EXPECT_EQ(kindsOf(session() + "/" + row.file), row.kinds) << row.file;
    for (const ReadTrack& track : tracksOf(session() + "/" + row.file))
      EXPECT_NEAR(track.milliseconds, sum, 1) << row.file;
  }
  const json::Value tracks = *completed.root().member("tracks");
  ASSERT_EQ(tracks.arraySize(), 4U);
  for (std::size_t i = 0; i < tracks.arraySize(); ++i)
    EXPECT_NEAR(tracks.at(i).member("durationMs")->number(), sum, 1);
}

} // namespace
} // namespace tessarin
