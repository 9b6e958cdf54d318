// A recording in an editor: what the built program tells of it and makes of it, without a display.

#include "Program.hpp"
#include "RecordedFiles.hpp"

#include "base/Text.hpp"
#include "support/EditProjects.hpp"
#include "support/PrivateDesktop.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

const std::string requestName = ".tessarin-edit-request-7F0A2C1B-91D3-4A55-8E62-0B1C2D3E4F50.json";
const std::string failed = failureReply("editExportFailed", "The edited video could not be exported.");
const std::string invalid = failureReply("invalidRequest", "The video edit export request is invalid.");

// A session's directory with ten seconds of 640x360 and two tracks of sound.
class EditingProgramTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    media = std::make_unique<TemporaryDirectory>();
    makeRecording(*media / "recording.mp4", "640x360", 10);
  }
  static void TearDownTestSuite() { media.reset(); }

  static void makeRecording(const std::string& path, const std::string& size, int seconds) {
    const std::string length = std::to_string(seconds);
    ChildProcess tool({"ffmpeg",
                       "-v",
                       "error",
                       "-f",
                       "lavfi",
                       "-i",
                       "testsrc2=r=30:s=" + size + ":d=" + length,
                       "-f",
                       "lavfi",
                       "-i",
                       "sine=f=440:r=48000:d=" + length,
                       "-f",
                       "lavfi",
                       "-i",
                       "sine=f=880:r=48000:d=" + length,
                       "-map",
                       "0",
                       "-map",
                       "1",
                       "-map",
                       "2",
                       "-c:v",
                       "libx264",
                       "-preset",
                       "ultrafast",
                       "-pix_fmt",
                       "yuv420p",
                       "-bf",
                       "0",
                       "-g",
                       "30",
                       "-c:a",
                       "aac",
                       "-ac",
                       "2",
                       path},
                      {});
    ASSERT_EQ(tool.waitForEnd(), 0);
  }

  void SetUp() override {
    request = editRequest(root.path());
    fs::create_directories(exports());
    fs::copy_file(*media / "recording.mp4", source());
  }

  fs::path exports() const { return fs::path(request.outputPath).parent_path(); }
  const std::string& source() const { return request.project.source.path; }

  ProgramResult exported() const { return runProgram(withRequest("export-edit", json::encode(request))); }
  std::string inFile() const {
    return root.write(editSession + "/exports/" + requestName, json::encode(request));
  }

  // Names in the exports' directory, in order.
  std::vector<std::string> outputs() const {
    std::vector<std::string> names;
    for (const auto& each : fs::directory_iterator(exports()))
      names.push_back(each.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  // A fresh source whose export takes its time.
  void useLongRecording() {
    fs::remove(source());
    makeRecording(source(), "1280x720", 30);
    request.project.source.durationMs = 30'000;
    request.project.source.widthPixels = 1280;
    request.project.source.heightPixels = 720;
    request.project.clips[0].sourceEndMs = 30'000;
    request.project.clips[0].rate = 0.5;
  }
  std::unique_ptr<ChildProcess> begun() const {
    auto job = std::make_unique<ChildProcess>(std::vector<std::string>{TESSARIN_PROGRAM, "export-edit",
                                                                       "--request-json",
                                                                       encodedBase64(json::encode(request))},
                                              ChildProcess::Settings{});
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (outputs().empty() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(10ms);
    return job;
  }

  static inline std::unique_ptr<TemporaryDirectory> media;
  TemporaryDirectory root;
  VideoEditExportRequestDTO request;
};

TEST_F(EditingProgramTest, InspectEditSourceTellsWhatTheRecordingHolds) {
  const auto inspect = [&](const char* microphone) {
    return runProgram(withRequest("inspect-edit-source", R"({"sessionId":")" + editSession +
                                                             R"(","sourcePath":")" + source() +
                                                             R"(","expectedSystemAudio":true,)"
                                                             R"("expectedMicrophone":)" +
                                                             microphone + "}"));
  };
  const ProgramResult told = inspect("true");
  EXPECT_EQ(told.exitStatus, 0);
  EXPECT_EQ(told.output, successReply(R"({"audioTracks":[{"role":"system","sourceTrackIndex":0},)"
                                      R"({"role":"microphone","sourceTrackIndex":1}],"durationMs":10000,)"
                                      R"("heightPixels":360,"sourcePath":")" +
                                      source() + R"(","widthPixels":640})"));
  const ProgramResult other = inspect("false");
  EXPECT_EQ(other.exitStatus, 1);
  EXPECT_EQ(other.output,
            failureReply("outputFailed", "The recording audio tracks do not match its saved settings."));
  fs::resize_file(source(), 1000);
  const ProgramResult torn = inspect("true");
  EXPECT_EQ(torn.exitStatus, 1);
  EXPECT_EQ(torn.output, failureReply("outputFailed", "The recording cannot be opened for video editing."));
}

TEST_F(EditingProgramTest, AudioWaveformTellsTheLoudnessOfEachSlice) {
  const ProgramResult told =
      runProgram(withRequest("audio-waveform", R"({"sessionId":")" + editSession + R"(","sourcePath":")" +
                                                   source() + R"(","sampleCount":64})"));
  EXPECT_EQ(told.exitStatus, 0);
  const json::Document reply(told.output);
  const json::Value data = *reply.root().member("data");
  EXPECT_EQ(data.member("sourcePath")->string(), source());
  const json::Value amplitudes = *data.member("amplitudes");
  ASSERT_EQ(amplitudes.arraySize(), 64U);
  for (std::size_t i = 0; i < 64; ++i)
    EXPECT_NEAR(amplitudes.at(i).number(), 0.125, 0.1) << i;
}

TEST_F(EditingProgramTest, ExportEditMakesTheSameFileOfBothFormsOfRequest) {
  request.project.clips[0].rate = 2;
  const ProgramResult first = exported();
  EXPECT_EQ(first.exitStatus, 0) << first.output << first.diagnostics;
  EXPECT_THAT(first.output, HasSubstr(R"({"data":{"durationMs":5000,"heightPixels":360,"outputPath":")" +
                                      request.outputPath + R"(","sizeBytes":)"));
  EXPECT_EQ(decodedPictures(request.outputPath), 150);
  const std::string bytes = root.read(editSession + "/exports/edited.mp4");
  fs::remove(request.outputPath);

  const ProgramResult second = runProgram({"export-edit", "--request-file", inFile()});
  EXPECT_EQ(second.exitStatus, 0) << second.output;
  EXPECT_EQ(second.output, first.output);
  EXPECT_TRUE(root.read(editSession + "/exports/edited.mp4") == bytes);
  EXPECT_THAT(outputs(), ElementsAre(requestName, "edited.mp4"));
}

TEST_F(EditingProgramTest, ExportEditCutsWithoutCodingAnew) {
  request.project.clips = {{"a", 1000, 2000, 1, 1, {}}, {"b", 4000, 6500, 1, 1, {}}};
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 0) << result.output << result.diagnostics;
  EXPECT_THAT(result.output, HasSubstr(R"("durationMs":3500,)"));
  EXPECT_EQ(decodedPictures(request.outputPath), 105);
}

TEST_F(EditingProgramTest, ExportEditLeavesWhatIsThere) {
  root.write(editSession + "/exports/edited.mp4", "mine");
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 2);
  EXPECT_EQ(result.output, invalid);
  EXPECT_EQ(root.read(editSession + "/exports/edited.mp4"), "mine");
}

TEST_F(EditingProgramTest, ExportEditLeavesNothingOfASourceThatIsNoMovie) {
  fs::remove(source());
  root.write(editSession + "/recording.mp4", std::string(100'000, 'x'));
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.output, failed);
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(EditingProgramTest, ExportEditRefusesFramesThatNothingPaints) {
  request.project.crop = {0.25, 0.25, 0.5, 0.5};
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.output,
            failureReply("internalError", "The native helper encountered an unexpected error."));
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(EditingProgramTest, ARequestThatFitsNoArgumentGoesByFile) {
  request.project.clips.clear();
  for (int i = 0; i < 90; ++i)
    request.project.clips.push_back(
        {"clip-" + std::to_string(i) + std::string(2000, 'i'), i * 100, (i + 1) * 100, 1, 1, {}});
  ASSERT_GT(json::encode(request).size(), 128U * 1024);
  const ProgramResult result = runProgram({"export-edit", "--request-file", inFile()});
  EXPECT_EQ(result.exitStatus, 0) << result.output << result.diagnostics;
  EXPECT_THAT(result.output, HasSubstr(R"("durationMs":9000,)"));
}

TEST_F(EditingProgramTest, AnExportThatIsAskedToEndLeavesNothing) {
  useLongRecording();
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    const auto job = begun();
    ASSERT_EQ(outputs().size(), 1U);
    ASSERT_EQ(::kill(job->pid(), signal), 0);
    EXPECT_EQ(job->readLine(20s).value_or("") + "\n", failed);
    EXPECT_EQ(job->waitForEnd(), 1);
    EXPECT_THAT(outputs(), IsEmpty());
  }
}

TEST_F(EditingProgramTest, AKilledExportDisturbsNoLaterOne) {
  useLongRecording();
  {
    const auto job = begun();
    ASSERT_EQ(::kill(job->pid(), SIGKILL), 0);
    (void)job->waitForEnd();
  }
  ASSERT_EQ(outputs().size(), 1U);
  EXPECT_TRUE(outputs()[0].starts_with(".tessarin-export-edited-")) << outputs()[0];
  request.project.clips[0].rate = 1;
  request.project.clips[0].sourceEndMs = 1000;
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 0) << result.output << result.diagnostics;
  EXPECT_EQ(outputs().size(), 2U);
}

TEST_F(EditingProgramTest, LongExportsTellHowFarTheyAre) {
  useLongRecording();
  request.project.clips[0].sourceEndMs = 10'000;
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 0) << result.output << result.diagnostics;
  int lines = 0;
  int lastPermille = -1;
  long lastElapsed = 999;
  std::size_t at = 0;
  for (std::size_t end = 0; (end = result.diagnostics.find('\n', at)) != std::string::npos; at = end + 1) {
    int permille = 0;
    long elapsed = 0;
    ASSERT_EQ(std::sscanf(result.diagnostics.substr(at, end - at).c_str(),
                          "tessarin-native export-progress permille=%d elapsedMs=%ld", &permille, &elapsed),
              2)
        << result.diagnostics;
    EXPECT_GT(permille, lastPermille);
    EXPECT_GE(elapsed - lastElapsed, lines == 0 ? 1 : 249);
    EXPECT_LE(permille, 1000);
    lastPermille = permille;
    lastElapsed = elapsed;
    ++lines;
  }
  EXPECT_GE(lines, 1);
}

TEST_F(EditingProgramTest, ShortExportsSayNothing) {
  request.project.clips[0].sourceEndMs = 200;
  const ProgramResult result = exported();
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.diagnostics, "");
}

} // namespace
} // namespace tessarin
