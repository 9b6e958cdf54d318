#include "DesktopFixture.hpp"
#include "PngReaders.hpp"
#include "WorkerProcess.hpp"

#include "base/Text.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

const std::string badOutput =
    failureReply("outputFailed", "The screenshot could not be written to its temporary output.");
const std::string unexpected =
    failureReply("internalError", "The native helper encountered an unexpected error.");

class PreparationTest : public DesktopFixture {
 protected:
  PreparationTest() { fs::create_directory(session); }

  ProgramResult prepare() const { return run(preparation(session)); }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(session))
      result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
  }
  void expectFailure(const std::string& reply, const char* what) {
    const ProgramResult result = prepare();
    EXPECT_EQ(result.output, reply) << what;
    EXPECT_EQ(result.exitStatus, 1) << what;
    EXPECT_EQ(result.diagnostics, "") << what;
  }

  TemporaryDirectory directory;
  const std::string session = directory / anyRequestID;
};

TEST_F(PreparationTest, FreezesTheDesktopWithThePicturesThatCaptureTakes) {
  const auto client = desktop.client({"--at", "40,40", "--size", "200x100", "--paint", "photo"});
  const Reply alone(run({"list"}));
  const ProgramResult result = prepare();
  const Reply prepared(result);
  const json::Value data = prepared.data();
  std::string context;
  json::appendValue(context, data.member("context").value());
  std::string listed;
  json::appendValue(listed, alone.data());
  EXPECT_EQ(context, listed);

  ASSERT_EQ(data.member("captures")->arraySize(), 1U);
  std::string captures;
  json::appendValue(captures, data.member("captures").value());
  const std::string id = alone.data().member("displays")->at(0).member("id")->string();
  EXPECT_EQ(captures, R"([{"displayId":")" + id + R"(","image":{"heightPixels":600,"path":")" + session +
                          R"(/0.png","scaleFactor":1,"widthPixels":800}}])");
  EXPECT_GT(data.member("discoveryMs")->number(), 0);
  EXPECT_GT(data.member("captureMs")->number(), 0);
  EXPECT_EQ(data.keys(), (std::vector<std::string>{"captureMs", "captures", "context", "discoveryMs"}));

  EXPECT_THAT(names(), ElementsAre("0.png"));
  EXPECT_EQ(readByAll(session + "/0.png").pixelCount(), 800U * 600U);
  const std::string shot = directory / "shot.png";
  EXPECT_EQ(
      run(withRequest("capture", R"({"kind":"display","displayId":")" + id +
                                     R"(","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":")" +
                                     shot + R"("})"))
          .exitStatus,
      0);
  EXPECT_EQ(directory.read("shot.png"), directory.read(std::string(anyRequestID) + "/0.png"));
  EXPECT_EQ(result.diagnostics, "");
}

TEST_F(PreparationTest, TheWindowsOfTheParentAreSeenButNotOffered) {
  const auto client =
      desktop.client({"--at", "0,0", "--size", "300x200", "--colour", "ffff0000", "--style", "override"});
  const OwnWindow own(desktop.display(), 35, 40, 10, 10, 0x00FF00);
  const Reply prepared(prepare());
  const json::Value context = prepared.data().member("context").value();
  ASSERT_EQ(context.member("windows")->arraySize(), 1U);
  EXPECT_EQ(context.member("windows")->at(0).member("id")->string(), client->windowID());
  const ReadPicture picture = readByAll(session + "/0.png");
  ASSERT_EQ(picture.pixelCount(), 800U * 600U);
  EXPECT_EQ(picture.at(40 * 800 + 34), 0xFF0000FFU);
  EXPECT_EQ(picture.at(40 * 800 + 35), 0x00FF00FFU);
  EXPECT_EQ(picture.at(49 * 800 + 44), 0x00FF00FFU);
  EXPECT_EQ(picture.at(50 * 800 + 44), 0xFF0000FFU);
}

TEST_F(PreparationTest, LogicalMonitorsHaveAPictureEach) {
  const auto client =
      desktop.client({"--at", "350,0", "--size", "100x100", "--colour", "ffff0000", "--style", "override"});
  desktop.run({"xrandr", "--setmonitor", "left", "400/100x600/150+0+0", "screen"});
  desktop.run({"xrandr", "--setmonitor", "*right", "400/100x300/75+400+0", "none"});
  const Reply prepared(prepare());
  ASSERT_EQ(prepared.data().member("captures")->arraySize(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    const json::Value display = prepared.data().member("context")->member("displays")->at(i);
    const json::Value capture = prepared.data().member("captures")->at(i);
    EXPECT_EQ(capture.member("displayId")->string(), display.member("id")->string());
    EXPECT_EQ(capture.member("image")->member("path")->string(), session + "/" + std::to_string(i) + ".png");
    const bool isRight = display.member("isPrimary")->boolean();
    const ReadPicture picture = readByAll(session + "/" + std::to_string(i) + ".png");
    ASSERT_EQ(picture.pixelCount(), isRight ? 400U * 300U : 400U * 600U);
    // The window lies across the border.
    EXPECT_EQ(picture.at(0) == 0xFF0000FF, isRight);
    EXPECT_EQ(picture.at(399) == 0xFF0000FF, !isRight);
    EXPECT_EQ(picture.at(49) == 0xFF0000FF, isRight);
    EXPECT_NE(picture.at(200), 0xFF0000FF);
  }
  EXPECT_THAT(names(), ElementsAre("0.png", "1.png"));
}

TEST_F(PreparationTest, SixteenLogicalMonitorsAreServedAndSeventeenAreNot) {
  for (int i = 0; i < 17; ++i) {
    if (i == 16) {
      const Reply prepared(prepare());
      EXPECT_EQ(prepared.data().member("captures")->arraySize(), 16U);
      EXPECT_EQ(names().size(), 16U);
      fs::remove_all(session);
      fs::create_directory(session);
    }
    desktop.run({"xrandr", "--setmonitor", "m" + std::to_string(i),
                 "40/10x40/10+" + std::to_string(i * 40) + "+0", i == 0 ? "screen" : "none"});
  }
  EXPECT_EQ(Reply(run({"list"})).data().member("displays")->arraySize(), 17U);
  expectFailure(failureReply("contentUnavailable", "Shareable screen content is temporarily unavailable."),
                "seventeen");
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(PreparationTest, ADirectoryThatBreaksARuleIsRefused) {
  directory.write(std::string(anyRequestID) + "/.DS_Store", "");
  expectFailure(badOutput, "a hidden file");
  fs::remove_all(session);
  expectFailure(unexpected, "no directory");
  directory.write(anyRequestID, "");
  expectFailure(badOutput, "a file");
  fs::remove(session);
  fs::create_directory(directory / "elsewhere");
  fs::create_directory_symlink(directory / "elsewhere", session);
  expectFailure(badOutput, "a link");
  EXPECT_TRUE(fs::is_empty(directory / "elsewhere"));

  const auto refused = [&](const std::string& request) {
    EXPECT_EQ(run(withRequest("prepare-capture", request)).output, badOutput) << request;
  };
  const std::string upper = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
  fs::create_directory(directory / upper);
  const auto request = [](int version, std::string_view id, const std::string& path) {
    return R"({"schemaVersion":)" + std::to_string(version) + R"(,"sessionId":")" + std::string(id) +
           R"(","directory":")" + path + R"("})";
  };
  refused(request(1, anyRequestID, directory / upper));
  refused(request(2, upper, directory / upper));
  refused(request(1, "elsewhere", directory / "elsewhere"));
  refused(request(1, upper, upper));
  refused(request(1, upper, directory / "x/../" + upper));
  EXPECT_EQ(run(withRequest("prepare-capture", request(1, upper, directory / upper))).exitStatus, 0);
}

// No file may grow beyond 64 KiB, which the picture of an empty display does not reach.
TEST_F(PreparationTest, AFullDiskLeavesWhatIsFinishedAndNothingElse) {
  desktop.run({"xrandr", "--setmonitor", "left", "400/100x600/150+0+0", "screen"});
  desktop.run({"xrandr", "--setmonitor", "right", "400/100x600/150+400+0", "none"});
  const Reply listed(run({"list"}));
  const json::Value second = listed.data().member("displays")->at(1).member("framePoints").value();
  const auto client = desktop.client({"--at", second.member("x")->number() == 0 ? "0,0" : "400,0", "--size",
                                      "400x600", "--paint", "photo", "--style", "override"});
  std::vector<std::string> command = {"/bin/bash", "-c", R"(trap '' XFSZ; ulimit -f 64; exec "$0" "$@")",
                                      TESSARIN_PROGRAM};
  for (const std::string& argument : preparation(session))
    command.push_back(argument);
  ChildProcess program(command, {.environment = {{"DISPLAY", desktop.display()}}});
  EXPECT_EQ(program.readLine().value_or("") + "\n", badOutput);
  EXPECT_EQ(program.waitForEnd(), 1);
  EXPECT_THAT(names(), ElementsAre("0.png"));
}

TEST_F(PreparationTest, WithoutADisplayTheScreenIsOutOfReach) {
  const ProgramResult result = runProgram(preparation(session), {.display = ":59999"});
  EXPECT_EQ(result.output, failureReply("permissionDenied",
                                        "Screen Recording permission is required to capture the display."));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(names(), IsEmpty());
}

} // namespace
} // namespace tessarin
