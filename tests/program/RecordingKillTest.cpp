// Recordings by the built program that are killed at moments that matter: what is finished is whole, what was
// running is kept to its last fragment, and a recovery makes the files of it.

#include "RegionRecordingFixture.hpp"

#include "base/FileSystem.hpp"
#include "container/Movie.hpp"

#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

class RecordingKillTest : public RegionRecordingFixture {
 protected:
  static void kill(RecordingProcess& recording) {
    ASSERT_EQ(::kill(recording.process().pid(), SIGKILL), 0);
    ASSERT_EQ(recording.process().waitForEnd(5s), 128 + SIGKILL);
  }

  // Returns as soon as it is so, which is within seconds.
  static void waitUntil(const std::function<bool()>& isSo) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!isSo())
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }

  bool holdsAnything(int index) const {
    std::error_code none;
    const auto size = std::filesystem::file_size(segment(index), none);
    return !none && size > 0;
  }
  bool isWritingManifest() const { return std::filesystem::exists(session() + "/native-manifest.json.tmp"); }

  // One finished segment, and a pause behind it.
  static void recordAndPause(RecordingProcess& recording) {
    recording.recordFor(400ms);
    recording.send("pause");
    recording.waitFor("paused");
  }

  // Of a segment by its own index, up to its last whole fragment.
  container::Track screenOf(int index) const {
    const auto file = machineFileSystem().open(segment(index), OpenMode::read);
    return container::readMovie(*file).tracks.at(0);
  }

  // A recovery of the first segment is refused and makes nothing.
  void expectNothingToRecover() const {
    const ProgramResult result = run(
        withRequest("recover-recording", R"({"sessionId":")" + sessionID + R"(","outputDirectory":")" +
                                             session() + R"(","segmentPaths":[")" + segment(0) + R"("]})"));
    EXPECT_EQ(result.exitStatus, 1) << result.output;
    EXPECT_FALSE(std::filesystem::exists(session() + "/screen.mp4"));
  }

  // A recovery of so many segments, from the first on, has all pictures that their indexes know.
  void expectRecovery(int segments) const {
    std::string paths;
    std::size_t pictures = 0;
    for (int i = 0; i < segments; ++i) {
      paths += (i == 0 ? "\"" : ",\"") + segment(i) + "\"";
      pictures += screenOf(i).samples.size();
    }
    const Reply reply(
        run(withRequest("recover-recording", R"({"sessionId":")" + sessionID + R"(","outputDirectory":")" +
                                                 session() + R"(","segmentPaths":[)" + paths + "]}")));
    EXPECT_EQ(reply.data().member("tracks")->at(0).member("path")->string(), session() + "/screen.mp4");
    for (const std::string name : {"/screen.mp4", "/recording.mp4"}) {
      EXPECT_EQ(pictureTimes(session() + name).size(), pictures);
      EXPECT_EQ(decodedPictures(session() + name), static_cast<int>(pictures));
    }
  }
};

TEST_F(RecordingKillTest, BeforeTheFirstFragmentThereIsNothingToRecover) {
  RecordingProcess recording = record();
  recording.waitFor("recording"); // the fragment comes a second later
  kill(recording);
  expectSegments(0);
  EXPECT_FALSE(holdsAnything(0));
  expectNothingToRecover();
}

TEST_F(RecordingKillTest, InsideAFlushTheFileIsReadToItsWholeFragments) {
  RecordingProcess recording = record();
  recording.waitFor("recording");
  waitUntil([&] { return holdsAnything(0); });
  kill(recording);
  expectSegments(0);
  try {
    if (!screenOf(0).samples.empty())
      return expectRecovery(1);
  } catch (const container::ContainerFailure&) {
    // Cut short within the head or the first fragment.
  }
  expectNothingToRecover();
}

TEST_F(RecordingKillTest, BehindAFragmentItsSecondIsKept) {
  RecordingProcess recording = record();
  recording.waitFor("recording");
  waitUntil([&] { return holdsAnything(0); });
  std::this_thread::sleep_for(500ms);
  kill(recording);
  expectSegments(0);
  EXPECT_GE(screenOf(0).duration.wholeMilliseconds(), 900);
  expectRecovery(1);
}

TEST_F(RecordingKillTest, DuringAPauseTheSegmentIsInTheManifestOrCanBeRead) {
  RecordingProcess recording = record();
  recording.waitFor("recording");
  waitUntil([&] { return holdsAnything(0); });
  std::this_thread::sleep_for(200ms);
  recording.send("pause");
  recording.waitFor("pausing");
  kill(recording);
  EXPECT_LE(manifestSegments(session()).size(), 1U);
  expectRecovery(1);
}

TEST_F(RecordingKillTest, DuringTheSecondWriteOfTheManifestItIsOneOrTheOther) {
  RecordingProcess recording = record();
  recordAndPause(recording);
  recording.send("resume");
  recording.recordFor(300ms);
  recording.send("pause");
  waitUntil([&] { return isWritingManifest() || manifestSegments(session()).size() == 2; });
  kill(recording);
  EXPECT_GE(manifestSegments(session()).size(), 1U);
  std::filesystem::remove(session() + "/native-manifest.json.tmp");
  expectSegments(manifestSegments(session()).size());
  expectRecovery(2); // a segment is finished before it is entered
}

TEST_F(RecordingKillTest, DuringAResumeTheSegmentBeforeIsWhole) {
  RecordingProcess recording = record();
  recordAndPause(recording);
  recording.send("resume");
  recording.waitFor("resuming");
  kill(recording);
  expectSegments(1);
  expectRecovery(1);
}

TEST_F(RecordingKillTest, WhenAStopBeginsAllSegmentsAreKept) {
  RecordingProcess recording = record();
  recordAndPause(recording);
  recording.send("resume");
  recording.waitForEvent("healthChanged");
  recording.send("stop");
  recording.waitFor("stopping");
  kill(recording);
  std::filesystem::remove(session() + "/native-manifest.json.tmp");
  EXPECT_GE(manifestSegments(session()).size(), 1U);
  expectSegments(manifestSegments(session()).size());
}

// What the merge had made by then is kept or made anew by the recovery.
TEST_F(RecordingKillTest, DuringAMergeBothSegmentsAreInTheManifest) {
  RecordingProcess recording = record();
  recordAndPause(recording);
  recording.send("resume");
  recording.recordFor(300ms);
  recording.send("stop");
  recording.waitForEvent("segmentFinalized");
  kill(recording);
  expectSegments(2);
  expectRecovery(2);
}

} // namespace
} // namespace tessarin
