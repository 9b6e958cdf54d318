#include "support/CommandLineRig.hpp"

#include <gmock/gmock.h>

namespace tessarin {
namespace {

using testing::HasSubstr;
using testing::Not;

class NativeCLITest : public CommandLineRig {};

const std::string captureRequest =
    R"({"kind":"region","displayId":"1","rectPoints":{"x":0,"y":0,"width":20,"height":10},"outputPath":"/tmp/a.png"})";

TEST_F(NativeCLITest, RefusedArgumentsReachNoService) {
  const NativeExecution refused = failure("invalidArguments", "Invalid native helper arguments.", 2);
  EXPECT_EQ(run({}), refused);
  EXPECT_EQ(run({"unknown"}), refused);
  EXPECT_EQ(run({"capture-worker"}), refused);
  EXPECT_EQ(run({"capture-worker", "extra"}), refused);
  EXPECT_EQ(run({"record"}), refused);
  EXPECT_EQ(run({"capture", "--request-json", "***"}),
            failure("invalidArguments", "The capture request is not valid base64 data.", 2));
  EXPECT_EQ(run({"copy", "--path", "relative"}),
            failure("invalidArguments", "Media paths must be absolute.", 2));
  EXPECT_EQ(machine.calls, 0);
  EXPECT_FALSE(recorded);
}

TEST_F(NativeCLITest, StatusTellsWhetherTheScreenCanBeReached) {
  EXPECT_EQ(run({"status"}),
            (NativeExecution{R"({"data":{"permission":"granted"},"ok":true,"schemaVersion":1})", 0}));
  machine.hasAccess = false;
  EXPECT_EQ(run({"status"}),
            (NativeExecution{R"({"data":{"permission":"notDetermined"},"ok":true,"schemaVersion":1})", 0}));
}

TEST_F(NativeCLITest, ListTellsTheDesktop) {
  EXPECT_EQ(
      run({"list"}),
      (NativeExecution{
          R"({"data":{"displays":[{"framePoints":{"height":480,"width":640,"x":0,"y":0},"id":"1","isPrimary":true,)"
          R"("pixelSize":{"height":480,"width":640},"scaleFactor":1}],"permission":"granted","uiElements":[],)"
          R"("windows":[{"displayId":"1","framePoints":{"height":100,"width":100,"x":10,"y":10},"id":"8",)"
          R"("isOnScreen":true,"layer":0,"ownerName":"Editor","ownerPid":100,"title":"Editor","zIndex":0},)"
          R"({"displayId":"1","framePoints":{"height":100,"width":100,"x":10,"y":10},"id":"9",)"
          R"("isOnScreen":true,"layer":0,"ownerName":"Host/1","ownerPid":200,"title":"Host/1","zIndex":1}]},)"
          R"("ok":true,"schemaVersion":1})",
          0}));
}

TEST_F(NativeCLITest, ListLeavesOutTheParentWhenAsked) {
  const NativeExecution execution = run({"list", "--exclude-parent-application"});
  EXPECT_EQ(execution.exitCode, 0);
  EXPECT_THAT(execution.output, HasSubstr(R"("id":"8")"));
  EXPECT_THAT(execution.output, Not(HasSubstr(R"("id":"9")")));
}

TEST_F(NativeCLITest, ListFailsWithoutAccess) {
  machine.hasAccess = false;
  EXPECT_EQ(run({"list"}), failure("permissionDenied",
                                   "Screen Recording permission is required to capture the display.", 1));
}

TEST_F(NativeCLITest, CaptureTellsTheImage) {
  EXPECT_EQ(
      runWith("capture", captureRequest),
      (NativeExecution{
          R"({"data":{"heightPixels":10,"path":"/tmp/a.png","scaleFactor":1,"widthPixels":20},"ok":true,"schemaVersion":1})",
          0}));
  EXPECT_TRUE(machine.excludedFromPicture.empty());
}

TEST_F(NativeCLITest, CaptureLeavesOutTheParentWhenAsked) {
  std::string request = captureRequest;
  request.insert(1, R"("excludeParentApplication":true,)");
  EXPECT_EQ(runWith("capture", request).exitCode, 0);
  ASSERT_EQ(machine.excludedFromPicture.size(), 1U);
  EXPECT_EQ(machine.excludedFromPicture[0].processID, parentProcess);
}

TEST_F(NativeCLITest, ACaptureRequestThatCannotBeDecodedIsRefused) {
  for (const char* const request : {"{", "{}", "[]", "null", R"({"kind":"region"})", "\xFF"})
    EXPECT_EQ(runWith("capture", request),
              failure("invalidRequest", "The capture request could not be decoded.", 2))
        << request;
  EXPECT_EQ(machine.calls, 0);
}

TEST_F(NativeCLITest, ACaptureRequestThatIsWrongFailsAsWork) {
  std::string request = captureRequest;
  request.replace(request.find("20"), 2, "-1");
  EXPECT_EQ(runWith("capture", request),
            failure("invalidRequest", "Capture geometry must contain finite, positive dimensions.", 1));
}

const std::string recordRequest =
    R"({"sessionId":"0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69","kind":"display","displayId":"1",)"
    R"("rectPoints":{"x":0,"y":0,"width":640,"height":480},"outputDirectory":"/tmp/s","settings":{)"
    R"("microphone":false,"systemAudio":false,"camera":false,"cameraPosition":"bottomRight",)"
    R"("showsCursor":false,"showMouseClicks":false,"frameRate":30,"quality":"standard","outputScale":"original"}})";

TEST_F(NativeCLITest, RecordHandsOverTheRequestAndReturnsItsStatusWithoutOutput) {
  for (const std::int32_t status : {0, 1}) {
    recordStatus = status;
    EXPECT_EQ(runWith("record", recordRequest), (NativeExecution{"", status}));
  }
  ASSERT_TRUE(recorded);
  EXPECT_EQ(recorded->sessionID, "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69");
  EXPECT_EQ(recorded->displayID, "1");
}

TEST_F(NativeCLITest, ARecordRequestThatCannotBeDecodedIsRefusedByAReply) {
  for (const char* const request : {"{}", "[", "7"})
    EXPECT_EQ(runWith("record", request),
              failure("invalidRequest", "The recording request could not be decoded.", 2));
  EXPECT_FALSE(recorded);
}

TEST_F(NativeCLITest, RequestsOfServicesBuiltLaterAreRefusedAsTheyWillBe) {
  const struct {
    const char* command;
    const char* request;
    NativeExecution refusal;
  } cases[] = {
      {"recognize-text", "", failure("invalidArguments", "The capture request is not valid base64 data.", 2)},
      {"recognize-qr", "", failure("invalidArguments", "The capture request is not valid base64 data.", 2)},
      {"recognize-text", "[]",
       failure("invalidArguments", "The capture request is not valid base64 data.", 2)},
      {"export-gif", "1", failure("invalidRequest", "The GIF export request exceeds its safe limits.", 2)},
      {"thumbnail", "1", failure("invalidRequest", "The thumbnail request is not valid JSON.", 2)},
  };
  for (const auto& each : cases)
    EXPECT_EQ(runWith(each.command, each.request), each.refusal) << each.command;
}

TEST_F(NativeCLITest, CommandsWhoseServiceIsBuiltLaterFailAsUnexpected) {
  const NativeExecution unexpected =
      failure("internalError", "The native helper encountered an unexpected error.", 1);
  for (const std::vector<std::string>& arguments : {
           std::vector<std::string>{"render-hdr", "--directory", "/d"},
           {"render-hdr", "--directory", "/d", "--format", "png"},
           {"copy-hdr", "--directory", "/d"},
           {"warm-text-recognition"},
           {"copy", "--path", "/f"},
           {"copy-file", "--path", "/f"},
           {"share", "--path", "/f"},
           {"translate-text"},
       })
    EXPECT_EQ(run(arguments), unexpected) << arguments[0];
  for (const char* const command : {"recognize-text", "recognize-qr", "export-gif", "thumbnail"})
    EXPECT_EQ(runWith(command, "{}"), unexpected) << command;
  EXPECT_EQ(machine.calls, 0);
}

} // namespace
} // namespace tessarin
