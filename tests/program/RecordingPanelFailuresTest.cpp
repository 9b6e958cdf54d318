// How recordings with a trace and panels fail by the built program, and what they keep.

#include "InteractionsFixture.hpp"
#include "RecordedFiles.hpp"

#include "support/SmallVolume.hpp"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tessarin {
namespace {

using std::chrono::milliseconds;

const std::string notWritten = "The screenshot could not be written to its temporary output.";
const std::string notCompleted = "The screen recording could not be completed.";
const std::string storageLow =
    "Recording stopped before storage filled. Recording sources were retained for recovery.";
constexpr std::uint64_t mib = 1'048'576;

class RecordingPanelFailuresTest : public InteractionsFixture {
 protected:
  void write(const std::string& path, const std::string& text) const { std::ofstream(path) << text; }
  std::string segmentPath() const { return session() + "/segments/segment-0000.mp4"; }
  bool manifestNames(const std::string& segment) const {
    return textOf(session() + "/native-manifest.json").find(segment) != std::string::npos;
  }
  // More than a page of the trace.
  void clickOften() {
    for (int i = 0; i < 60; ++i) {
      input.moveTo(20 + i % 10 * 70, 20 + i / 10 * 90);
      input.click();
    }
  }
  // Of the process so far, in milliseconds; nothing when it has gone.
  static std::optional<std::int64_t> processorTime(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    if (text.empty())
      return std::nullopt;
    std::istringstream words(text.substr(text.rfind(')') + 2));
    std::string word;
    for (int i = 0; i < 11; ++i)
      words >> word;
    std::int64_t user = 0;
    std::int64_t system = 0;
    words >> user >> system;
    return (user + system) * 1000 / ::sysconf(_SC_CLK_TCK);
  }
  // The display has gone, with panels shown: the program tells and ends, soon and without working for it.
  void expectEndWithTheDisplay(RecordingProcess& recording) {
    const auto begun = std::chrono::steady_clock::now();
    const std::optional<std::int64_t> before = processorTime(recording.process().pid());
    ASSERT_TRUE(before);
    desktop.killServer();
    std::int64_t used = 0;
    std::optional<int> status;
    while (!status && std::chrono::steady_clock::now() < begun + std::chrono::seconds(10)) {
      used = processorTime(recording.process().pid()).value_or(*before + used) - *before;
      status = recording.process().waitForEnd(milliseconds(20));
    }
    EXPECT_EQ(status, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(4));
    EXPECT_LT(used, 1000);
    expectFailure(recording, "recordingFailed", notCompleted, "unexpected-stream-stop");
  }

  const std::unique_ptr<TestClient> animation =
      desktop.client({"--style", "override", "--paint", "counter", "--fps", "30", "--size", "320x240"});
};

TEST_F(RecordingPanelFailuresTest, ATraceThatIsThereAlreadyIsLeftAlone) {
  write(tracePath(), "earlier\n");
  const auto recording = start({});
  expectFailure(*recording, "outputFailed", notWritten, "interaction-recorder");
  EXPECT_EQ(textOf(tracePath()), "earlier\n");
  EXPECT_FALSE(std::filesystem::exists(segmentPath()));
}

TEST_F(RecordingPanelFailuresTest, ACameraLayoutThatIsThereAlreadyIsLeftAlone) {
  plugInCamera();
  write(layoutPath(), "earlier");
  InteractionRecordingOptions options;
  options.camera = true;
  const auto recording = start(options);
  expectFailure(*recording, "outputFailed", notWritten, "camera-overlay");
  EXPECT_EQ(textOf(layoutPath()), "earlier");
  EXPECT_FALSE(std::filesystem::exists(tracePath()));
}

// The volume is full just while clicks are to be written, and has room again before anybody looks.
TEST_F(RecordingPanelFailuresTest, ATraceThatCouldNotBeWrittenFailsTheStopAndSegmentsAreKept) {
  const SmallVolume volume(2048 * mib);
  recordInto(volume.path());
  const auto recording = start({});
  recording->waitForEvent("healthChanged");       // the next look is a second off
  std::this_thread::sleep_for(milliseconds(600)); // the second's pictures are written
  volume.setFreeBytes(0);
  clickOften();
  volume.setFreeBytes(1024 * mib);
  EXPECT_LT(events<InteractionClickEvent>().size(), 60U);
  recording->send("stop");
  expectFailure(*recording, "outputFailed", notWritten, "stop-interactions");
  EXPECT_TRUE(manifestNames("segment-0000.mp4"));
  EXPECT_GE(decodedPictures(segmentPath()), 20);
  EXPECT_GE(decodedPictures(session() + "/recording.mp4"), 20);
}

TEST_F(RecordingPanelFailuresTest, AFullVolumeEndsTheRecordingAndWhatWasWrittenCanBeRead) {
  const SmallVolume volume(2048 * mib);
  recordInto(volume.path());
  const auto recording = start({});
  recording->waitForEvent("healthChanged");
  std::this_thread::sleep_for(milliseconds(600));
  volume.setFreeBytes(0);
  clickOften();
  expectFailure(*recording, "recordingStorageLow", storageLow, "unexpected-stream-stop");
  EXPECT_FALSE(trace().empty());
  volume.setFreeBytes(64 * mib);
  EXPECT_GE(decodedPictures(segmentPath()), 10);
}

TEST_F(RecordingPanelFailuresTest, ADisplayThatDiesTakesThePanelsWithIt) {
  plugInCamera();
  InteractionRecordingOptions options;
  options.camera = true;
  const auto recording = start(options);
  recording->waitForEvent("healthChanged");
  input.chord({KEY_LEFTCTRL}, KEY_J);
  std::this_thread::sleep_for(milliseconds(100)); // the badge is shown
  expectEndWithTheDisplay(*recording);
  EXPECT_TRUE(manifestNames("segment-0000.mp4"));
  EXPECT_GE(decodedPictures(segmentPath()), 10);
  EXPECT_EQ(shortcuts(), (Shortcuts{{"Control", "J"}}));
  EXPECT_FALSE(textOf(layoutPath()).empty());
}

TEST_F(RecordingPanelFailuresTest, ADisplayThatDiesInAPauseEndsTheRecordingToo) {
  plugInCamera();
  InteractionRecordingOptions options;
  options.camera = true;
  const auto recording = start(options);
  recording->waitForEvent("healthChanged");
  recording->send("pause");
  recording->waitFor("paused");
  expectEndWithTheDisplay(*recording);
  EXPECT_TRUE(manifestNames("segment-0000.mp4"));
}

} // namespace
} // namespace tessarin
