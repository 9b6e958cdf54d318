#include "support/CommandLineRig.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <limits>
#include <stdexcept>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string noDisplay = "Shareable screen content is temporarily unavailable.";

class NativeCLIPreflightTest : public CommandLineRig {
 protected:
  static NativeExecution permission(const std::string& status) {
    return success(R"({"permission":")" + status + R"("})");
  }
};

constexpr auto unknownCapture = static_cast<CaptureAuthorizationStatus>(200);
constexpr auto unknownSpeech = static_cast<SpeechAuthorizationStatus>(200);

const struct {
  CaptureAuthorizationStatus platform;
  const char* told;
} captureTable[] = {{CaptureAuthorizationStatus::authorized, "granted"},
                    {CaptureAuthorizationStatus::denied, "denied"},
                    {CaptureAuthorizationStatus::notDetermined, "notDetermined"},
                    {CaptureAuthorizationStatus::restricted, "restricted"},
                    {unknownCapture, "restricted"}};

TEST_F(NativeCLIPreflightTest, MicrophoneStatusTellsTheStatus) {
  for (const auto& each : captureTable) {
    authorization.audio = each.platform;
    authorization.calls.clear();
    EXPECT_EQ(run({"microphone-status"}), permission(each.told));
    EXPECT_THAT(authorization.calls, ElementsAre("status audio"));
  }
}

TEST_F(NativeCLIPreflightTest, CameraStatusTellsTheStatus) {
  for (const auto& each : captureTable) {
    authorization.video = each.platform;
    authorization.calls.clear();
    EXPECT_EQ(run({"camera-status"}), permission(each.told));
    EXPECT_THAT(authorization.calls, ElementsAre("status video"));
  }
}

TEST_F(NativeCLIPreflightTest, AMicrophoneThatIsNotGrantedIsAFailure) {
  const NativeExecution refusal =
      failure("microphoneDenied", "Microphone access is required when microphone recording is enabled.", 1);
  EXPECT_EQ(run({"request-microphone-permission"}), permission("granted"));
  for (const auto platform :
       {CaptureAuthorizationStatus::denied, CaptureAuthorizationStatus::restricted, unknownCapture}) {
    authorization.audio = platform;
    EXPECT_EQ(run({"request-microphone-permission"}), refusal);
  }
  authorization.audio = CaptureAuthorizationStatus::notDetermined;
  EXPECT_EQ(run({"request-microphone-permission"}), permission("granted"));
  authorization.grants = false;
  EXPECT_EQ(run({"request-microphone-permission"}), refusal);
}

TEST_F(NativeCLIPreflightTest, ACameraThatIsNotGrantedIsAFailure) {
  const NativeExecution refusal =
      failure("cameraDenied", "Camera access is required when camera picture-in-picture is enabled.", 1);
  EXPECT_EQ(run({"request-camera-permission"}), permission("granted"));
  for (const auto platform :
       {CaptureAuthorizationStatus::denied, CaptureAuthorizationStatus::restricted, unknownCapture}) {
    authorization.video = platform;
    EXPECT_EQ(run({"request-camera-permission"}), refusal);
  }
  authorization.video = CaptureAuthorizationStatus::notDetermined;
  EXPECT_EQ(run({"request-camera-permission"}), permission("granted"));
  authorization.grants = false;
  EXPECT_EQ(run({"request-camera-permission"}), refusal);
}

TEST_F(NativeCLIPreflightTest, InteractionCannotTellARefusalBeforeItIsRequested) {
  EXPECT_EQ(run({"interaction-permission-status"}), permission("granted"));
  EXPECT_EQ(run({"request-interaction-permission"}), permission("granted"));
  permissions.mayListen = false;
  EXPECT_EQ(run({"interaction-permission-status"}), permission("notDetermined"));
  EXPECT_EQ(run({"request-interaction-permission"}), permission("denied"));
  EXPECT_THAT(permissions.calls,
              ElementsAre("listen preflight", "listen request", "listen preflight", "listen request"));
}

TEST_F(NativeCLIPreflightTest, SpeechStatusTellsTheStatus) {
  const struct {
    SpeechAuthorizationStatus platform;
    const char* told;
  } cases[] = {{SpeechAuthorizationStatus::authorized, "granted"},
               {SpeechAuthorizationStatus::denied, "denied"},
               {SpeechAuthorizationStatus::notDetermined, "notDetermined"},
               {SpeechAuthorizationStatus::restricted, "restricted"},
               {unknownSpeech, "restricted"}};
  for (const auto& each : cases) {
    permissions.speech = each.platform;
    permissions.calls.clear();
    EXPECT_EQ(run({"speech-permission-status"}), permission(each.told));
    EXPECT_THAT(permissions.calls, ElementsAre("speech status"));
  }
}

TEST_F(NativeCLIPreflightTest, ARefusedSpeechRequestIsAnAnswer) {
  const struct {
    PermissionStatus answer;
    const char* told;
  } cases[] = {{PermissionStatus::granted, "granted"},
               {PermissionStatus::denied, "denied"},
               {PermissionStatus::notDetermined, "notDetermined"},
               {PermissionStatus::restricted, "restricted"}};
  for (const auto& each : cases) {
    permissions.speechAnswer = each.answer;
    permissions.calls.clear();
    EXPECT_EQ(run({"request-speech-permission"}), permission(each.told));
    EXPECT_THAT(permissions.calls, ElementsAre("speech asked"));
  }
}

TEST_F(NativeCLIPreflightTest, InputDevicesAreListedByKind) {
  devices.microphoneList = {{"b", "Built-in / 2", false}, {"z", "Zoom", true}};
  devices.cameraList.clear();
  EXPECT_EQ(run({"recording-input-devices"}),
            success(R"({"cameras":[],"microphones":[{"id":"z","isDefault":true,"name":"Zoom"},)"
                    R"({"id":"b","isDefault":false,"name":"Built-in / 2"}]})"));
  devices.reachable = false;
  EXPECT_EQ(run({"recording-input-devices"}), success(R"({"cameras":[],"microphones":[]})"));
}

TEST_F(NativeCLIPreflightTest, AvailableBytesAreABareNumber) {
  files.setAvailableBytes(0);
  EXPECT_EQ(run({"recording-available-bytes"}), success("0"));
  files.setAvailableBytes(123456789012);
  EXPECT_EQ(run({"recording-available-bytes"}), success("123456789012"));
  files.setAvailableBytes(std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(run({"recording-available-bytes"}), success("9223372036854775807"));
  EXPECT_EQ(files.log().back().path, directory.path());
  files.failAlways(FileOperation::space, EIO);
  EXPECT_EQ(run({"recording-available-bytes"}),
            failure("outputFailed", "The screenshot could not be written to its temporary output.", 1));
}

TEST_F(NativeCLIPreflightTest, SystemAudioIsSampled) {
  whileAsleep = [this] { devices.systemAudios.back()->deliver(steadySample(0.25F, 100, {})); };
  EXPECT_EQ(runWith("sample-recording-system-audio", R"({"displayId":"1"})"),
            success(R"({"peak":0.25,"rms":0.25,"sampleCount":200})"));
  whileAsleep = [] {};
  EXPECT_EQ(runWith("sample-recording-system-audio", R"({"displayId":"1"})"),
            success(R"({"peak":0,"rms":0,"sampleCount":0})"));
}

TEST_F(NativeCLIPreflightTest, ALevelThatIsNoNumberCannotBeEncoded) {
  whileAsleep = [this] {
    devices.systemAudios.back()->deliver(steadySample(std::numeric_limits<float>::infinity(), 1, {}));
  };
  EXPECT_EQ(runWith("sample-recording-system-audio", R"({"displayId":"1"})"),
            (NativeExecution{std::string(unencodableResponse), 1}));
}

TEST_F(NativeCLIPreflightTest, SystemAudioThatCannotBeHadIsUnavailable) {
  const NativeExecution unavailable = failure("contentUnavailable", noDisplay, 1);
  EXPECT_EQ(runWith("sample-recording-system-audio", R"({"displayId":"2"})"), unavailable);
  EXPECT_THAT(devices.calls(), IsEmpty());
  devices.reachable = false;
  EXPECT_EQ(runWith("sample-recording-system-audio", R"({"displayId":"1"})"), unavailable);
  machine.hasAccess = false;
  EXPECT_EQ(
      runWith("sample-recording-system-audio", R"({"displayId":"1"})"),
      failure("permissionDenied", "Screen Recording permission is required to capture the display.", 1));
}

TEST_F(NativeCLIPreflightTest, AFailureThatNobodyExpectsIsInternal) {
  whileAsleep = [] { throw std::runtime_error("woken"); };
  EXPECT_EQ(runWith("sample-recording-system-audio", R"({"displayId":"1"})"),
            failure("internalError", "The native helper encountered an unexpected error.", 1));
}

TEST_F(NativeCLIPreflightTest, ASampleRequestThatCannotBeDecodedIsRefused) {
  for (const char* const request : {"{", "{}", "[]", R"({"displayId":1})", R"({"displayId":""})"})
    EXPECT_EQ(runWith("sample-recording-system-audio", request),
              failure("invalidRequest", "The recording request could not be decoded.", 2))
        << request;
  EXPECT_EQ(machine.calls, 0);
  EXPECT_THAT(devices.calls(), IsEmpty());
}

} // namespace
} // namespace tessarin
