#include "DesktopFixture.hpp"

#include "base/Text.hpp"
#include "support/TemporaryDirectory.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tessarin {
namespace {

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

class RecordTest : public DesktopFixture {
 protected:
  RecordTest() { std::filesystem::create_directory(session()); }

  std::string session() const { return directory / sessionID; }

  std::string request(const std::string& rect = R"({"x":0,"y":0,"width":320,"height":240})") const {
    return R"({"sessionId":")" + sessionID + R"(","kind":"region","displayId":")" + displayID() +
           R"(","rectPoints":)" + rect + R"(,"outputDirectory":")" + session() +
           R"(","settings":{"microphone":false,"systemAudio":false,"camera":false,)"
           R"("cameraPosition":"bottomRight","showsCursor":false,"showMouseClicks":false,"frameRate":15,)"
           R"("quality":"standard","outputScale":"original"}})";
  }

  TemporaryDirectory directory;
};

TEST_F(RecordTest, ARequestThatFailsItsChecksIsAnEventAndCreatesNothing) {
  const ProgramResult result =
      run(withRequest("record", request(R"({"x":0,"y":0,"width":-1,"height":240})")));
  EXPECT_EQ(result.exitStatus, 1);
  const json::Document event(result.output);
  EXPECT_EQ(event.root().member("event")->string(), "failed");
  EXPECT_EQ(event.root().member("error")->member("code")->string(), "invalidRequest");
  EXPECT_EQ(event.root().member("error")->member("message")->string(),
            "Recording geometry must contain finite, positive dimensions.");
  EXPECT_TRUE(std::filesystem::is_empty(session()));
}

// The first event says that it records, so nobody knows of a recording that could not say so.
TEST_F(RecordTest, AHostThatCannotHearTheFirstEventHasNoRecording) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  ::close(ends[0]);
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  const struct {
    const char* what;
    int output;
  } rows[] = {{"closed", -1}, {"a pipe that nobody reads", ends[1]}, {"a full device", full}};
  for (const auto& row : rows) {
    const ProgramResult result = runProgram(withRequest("record", request()),
                                            {.display = desktop.display(), .standardOutput = row.output});
    EXPECT_EQ(result.exitStatus, 1) << row.what << ", and no signal " << result.signal;
    EXPECT_EQ(result.diagnostics,
              "tessarin-native recording-failed stage=start-capture nativeCode=recordingFailed\n")
        << row.what;
    EXPECT_TRUE(std::filesystem::is_empty(session() + "/segments")) << row.what;
    std::filesystem::remove_all(session());
    std::filesystem::create_directory(session());
  }
  ::close(full);
  ::close(ends[1]);
}

TEST_F(RecordTest, AHostThatHasGoneLeavesAFinishedSegment) {
  const auto client = desktop.client({"--size", "320x240", "--paint", "counter", "--style", "override"});
  // `head` leaves after the second event, so nobody reads what the program still says.
  ChildProcess host({"bash", "-c",
                     std::string(TESSARIN_PROGRAM) + " record --request-json " + encodedBase64(request()) +
                         " 2>/dev/null | head -n 2; echo \"status ${PIPESTATUS[0]}\""},
                    {.environment = {{"DISPLAY", desktop.display()}}, .hasInput = true});
  ASSERT_TRUE(host.readLine());
  ASSERT_TRUE(host.readLine());
  host.closeInput();
  EXPECT_EQ(host.readLine(std::chrono::seconds(20)), "status 1");

  const std::string segment = session() + "/segments/segment-0000.mp4";
  const std::string frames =
      desktop.run({"ffprobe", "-v", "error", "-count_frames", "-select_streams", "v", "-show_entries",
                   "stream=nb_read_frames", "-of", "csv=p=0", segment});
  EXPECT_GT(std::stoi(frames), 0);
  std::ifstream manifest(session() + "/native-manifest.json");
  const std::string text((std::istreambuf_iterator<char>(manifest)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("segment-0000.mp4"), std::string::npos) << text;
}

} // namespace
} // namespace tessarin
