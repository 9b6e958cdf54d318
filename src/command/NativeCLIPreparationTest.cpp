#include "support/CommandLineRig.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>

namespace tessarin {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
const NativeExecution unexpected{R"({"error":{"code":"internalError",)"
                                 R"("message":"The native helper encountered an unexpected error.",)"
                                 R"("recoverable":true},"ok":false,"schemaVersion":1})",
                                 1};

class NativeCLIPreparationTest : public CommandLineRig {
 protected:
  NativeCLIPreparationTest() {
    std::filesystem::create_directory(session());
    machine.files = &files;
  }

  std::string session() const { return directory / sessionID; }
  NativeExecution prepare() {
    return runWith("prepare-capture", R"({"schemaVersion":1,"sessionId":")" + sessionID +
                                          R"(","directory":")" + session() + R"("})");
  }
};

TEST_F(NativeCLIPreparationTest, TellsTheDesktopAndItsPictures) {
  const std::string window =
      R"({"displayId":"1","framePoints":{"height":100,"width":100,"x":10,"y":10},"id":"8","isOnScreen":true,)"
      R"("layer":0,"ownerName":"Editor","ownerPid":100,"title":"Editor","zIndex":0})";
  EXPECT_EQ(
      prepare(),
      success(
          R"({"captureMs":0,"captures":[{"displayId":"1","image":{"heightPixels":480,"path":")" + session() +
          R"(/0.png","scaleFactor":1,"widthPixels":640}}],"context":{"displays":[{"framePoints":)"
          R"({"height":480,"width":640,"x":0,"y":0},"id":"1","isPrimary":true,"pixelSize":)"
          R"({"height":480,"width":640},"scaleFactor":1}],"permission":"granted","uiElements":[],"windows":[)" +
          window + R"(]},"discoveryMs":0})"));
  EXPECT_TRUE(std::filesystem::exists(session() + "/0.png"));
}

TEST_F(NativeCLIPreparationTest, TheParentOfTheMomentCounts) {
  EXPECT_THAT(prepare().output, Not(HasSubstr(R"("ownerPid":200)")));
  EXPECT_TRUE(machine.excludedFromPicture.empty());
  std::filesystem::remove(session() + "/0.png");
  parent = [] { return 100; };
  const NativeExecution other = prepare();
  EXPECT_THAT(other.output, HasSubstr(R"("ownerPid":200)"));
  EXPECT_THAT(other.output, Not(HasSubstr(R"("ownerPid":100)")));
}

TEST_F(NativeCLIPreparationTest, ARequestThatCannotBeDecodedIsRefusedLikeBadBase64) {
  for (const char* const request : {"{", "{}", "[]", "null", R"({"schemaVersion":1,"sessionId":"x"})",
                                    R"({"schemaVersion":1,"sessionId":"x","directory":1})",
                                    R"({"sessionId":"x","directory":"/x"})", "\xFF"})
    EXPECT_EQ(runWith("prepare-capture", request),
              failure("invalidArguments", "The capture request is not valid base64 data.", 2))
        << request;
  EXPECT_EQ(machine.calls, 0);
}

TEST_F(NativeCLIPreparationTest, FailuresAreToldByTheirCause) {
  const NativeExecution refused =
      failure("outputFailed", "The screenshot could not be written to its temporary output.", 1);
  EXPECT_EQ(runWith("prepare-capture", R"({"schemaVersion":2,"sessionId":"x","directory":"relative"})"),
            refused);
  directory.write(sessionID + "/.DS_Store", "");
  EXPECT_EQ(prepare(), refused);
  std::filesystem::remove(session() + "/.DS_Store");
  files.failNth(FileOperation::list, 1, EIO);
  EXPECT_EQ(prepare(), unexpected);
  files.failNth(FileOperation::rename, 1, EIO);
  EXPECT_EQ(prepare(), unexpected);
  EXPECT_TRUE(std::filesystem::is_empty(session()));
  machine.hasAccess = false;
  EXPECT_EQ(prepare(), failure("permissionDenied",
                               "Screen Recording permission is required to capture the display.", 1));
  std::filesystem::remove(session());
  EXPECT_EQ(prepare(), unexpected) << "there is no such directory";
}

} // namespace
} // namespace tessarin
