// Recordings by the built program on a volume that gets full while it records, while it joins what it has,
// and while a recovery does: what is told, what is kept, and that all comes out once there is space again.

#include "DesktopFixture.hpp"
#include "RecordedFiles.hpp"
#include "RecordingProcess.hpp"

#include "support/SmallVolume.hpp"
#include "support/TemporaryDirectory.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
constexpr std::uint64_t mib = 1'048'576;
const std::string couldNotBeRecovered = "The finalized recording segments could not be recovered.";

class RecordingFullDisk : public DesktopFixture {
 protected:
  RecordingFullDisk() { std::filesystem::create_directory(session()); }

  std::string session() const { return volume.path() + "/" + sessionID; }

  RecordingProcess record() const {
    return {sessionID,
            R"({"sessionId":")" + sessionID + R"(","kind":"region","displayId":")" + display +
                R"(","rectPoints":{"x":0,"y":0,"width":320,"height":240},"outputDirectory":")" + session() +
                R"(","settings":{"microphone":false,"systemAudio":false,"camera":false,)"
                R"("cameraPosition":"bottomRight","showsCursor":false,"showMouseClicks":false,)"
                R"("frameRate":15,"quality":"standard","outputScale":"original"}})",
            {{"DISPLAY", desktop.display()}},
            notes / "diagnostics"};
  }
  // A segment of a good second, finished.
  static void recordOneSegment(RecordingProcess& recording) {
    recording.waitForEvent("healthChanged");
    recording.send("pause");
    recording.waitFor("paused");
  }

  struct Told {
    std::string code;
    std::string message;
    bool operator==(const Told&) const = default;
  };
  // Follows the recording to its end, which is a failure at that stage, and yields what is told of it.
  Told failure(RecordingProcess& recording, const std::string& stage) const {
    const json::Document failed = recording.waitForEvent("failed");
    const json::Value error = *failed.root().member("error");
    const Told told{error.member("code")->string(), error.member("message")->string()};
    EXPECT_TRUE(error.member("recoverable")->boolean());
    EXPECT_EQ(recording.process().waitForEnd(10s), 1);
    const std::string line = "recording-failed stage=" + stage + " nativeCode=" + told.code + "\n";
    EXPECT_NE(notes.read("diagnostics").find(line), std::string::npos) << notes.read("diagnostics");
    return told;
  }

  ProgramResult recover() const {
    std::string paths;
    for (const ManifestSegment& segment : manifestSegments(session()))
      paths += (paths.empty() ? "\"" : ",\"") + segment.path + "\"";
    return run(withRequest("recover-recording", R"({"sessionId":")" + sessionID + R"(","outputDirectory":")" +
                                                    session() + R"(","segmentPaths":[)" + paths + "]}"));
  }
  // With space again, everything comes of the segments that the manifest lists.
  void expectRecovered() const {
    volume.setFreeBytes(600 * mib);
    const ProgramResult result = recover();
    EXPECT_EQ(result.exitStatus, 0) << result.output;
    std::int64_t durationMs = 0;
    for (const ManifestSegment& segment : manifestSegments(session()))
      durationMs += segment.durationMs;
    const Reply reply(result);
    EXPECT_NEAR(reply.data().member("deliverables")->at(0).member("durationMs")->number(),
                static_cast<double>(durationMs), 2);
    EXPECT_GT(decodedPictures(session() + "/recording.mp4"), 0);
    EXPECT_GT(decodedPictures(session() + "/screen.mp4"), 0);
    expectNothingHalfMade();
  }

  // The manifested segments with their bytes; each is whole.
  std::map<std::string, std::string> segments() const {
    std::map<std::string, std::string> found;
    for (const ManifestSegment& segment : manifestSegments(session())) {
      std::ifstream file(segment.path, std::ios::binary);
      found[segment.path] =
          std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      EXPECT_EQ(static_cast<std::int64_t>(found[segment.path].size()), segment.sizeBytes);
      EXPECT_GT(decodedPictures(segment.path), 0);
    }
    return found;
  }
  // No temporary file, and what has its final name can be played.
  void expectNothingHalfMade() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(session()))
      EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
    for (const char* const name : {"/recording.mp4", "/screen.mp4"})
      if (std::filesystem::exists(session() + name)) {
        EXPECT_GT(decodedPictures(session() + name), 0) << name;
      }
  }

  const Told endedInTime{"recordingStorageLow", "Recording stopped before storage filled. Recording sources "
                                                "were retained for recovery."};
  const Told notCompleted{"recordingFailed", "The screen recording could not be completed."};
  const std::string display = displayID();
  const std::unique_ptr<TestClient> client =
      desktop.client({"--size", "320x240", "--paint", "counter", "--style", "override"});
  const TemporaryDirectory notes; // on a disk that does not get full
  const SmallVolume volume{1200 * mib};
};

TEST_F(RecordingFullDisk, ARecordingEndsInTimeAndKeepsAllSegments) {
  RecordingProcess recording = record();
  recordOneSegment(recording);
  recording.send("resume");
  recording.waitForEvent("healthChanged");
  volume.setFreeBytes(200 * mib);
  const json::Document health = recording.waitForEvent("healthChanged");
  EXPECT_EQ(health.root().member("health")->member("storage")->string(), "critical");
  recording.waitForEvent("segmentFinalized");
  EXPECT_EQ(failure(recording, "unexpected-stream-stop"), endedInTime);
  EXPECT_EQ(segments().size(), 2U);
  expectRecovered();
}

// Somebody else takes all there is between two looks at the disk: what is recorded then cannot be written.
TEST_F(RecordingFullDisk, ADiskThatIsFullAtOnceCostsOnlyTheSegmentUnderWay) {
  RecordingProcess recording = record();
  recordOneSegment(recording);
  const auto kept = segments();
  ASSERT_EQ(kept.size(), 1U);
  recording.send("resume");
  recording.waitForEvent("healthChanged");
  volume.setFreeBytes(0);
  const Told told = failure(recording, "unexpected-stream-stop");
  EXPECT_TRUE(told == endedInTime || told == notCompleted) << told.code; // the watch or the writer is first
  const auto after = segments();
  EXPECT_EQ(after.at(kept.begin()->first), kept.begin()->second);
  expectNothingHalfMade();
  expectRecovered();
  EXPECT_EQ(segments(), after);
}

struct Room {
  const char* name;
  int halves; // of the segment's size
};
void PrintTo(const Room& room, std::ostream* stream) {
  *stream << room.name;
}

class RecordingFullDiskAtStop : public RecordingFullDisk, public ::testing::WithParamInterface<Room> {};

TEST_P(RecordingFullDiskAtStop, TheFilesThatDoNotFitAreToldAndCanBeMadeLater) {
  RecordingProcess recording = record();
  recordOneSegment(recording);
  const auto kept = segments();
  ASSERT_EQ(kept.size(), 1U);
  const std::uint64_t size = kept.begin()->second.size();
  ASSERT_GT(size, 4U * 4096) << "more than a few pages";
  const std::uint64_t room = size * static_cast<std::uint64_t>(GetParam().halves) / 2;
  volume.setFreeBytes(room);
  recording.send("stop");
  EXPECT_EQ(failure(recording, "stop-parallel-merge"), notCompleted);
  EXPECT_EQ(segments(), kept);
  EXPECT_FALSE(std::filesystem::exists(session() + "/recording.mp4") &&
               std::filesystem::exists(session() + "/screen.mp4"));
  expectNothingHalfMade();

  const ProgramResult result = recover(); // it is still full
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.output, failureReply("recordingMergeFailed", couldNotBeRecovered));
  EXPECT_EQ(segments(), kept);
  expectNothingHalfMade();

  expectRecovered();
  EXPECT_EQ(segments(), kept);
}

INSTANTIATE_TEST_SUITE_P(Volume, RecordingFullDiskAtStop,
                         ::testing::Values(Room{"WithoutAnyRoom", 0}, Room{"WithRoomForAPartOfOne", 1},
                                           Room{"WithRoomForOneOfTwo", 3}),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace
} // namespace tessarin
