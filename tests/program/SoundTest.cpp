#include "DesktopFixture.hpp"

#include "support/PrivateSessionBus.hpp"
#include "support/PrivateSoundServer.hpp"
#include "support/TemporaryDirectory.hpp"
#include "support/TestPortal.hpp"

#include <chrono>
#include <cmath>
#include <filesystem>

namespace tessarin {
namespace {

// A desktop and a server of sound and cameras, with the bus on which a portal may be.
class SoundTest : public DesktopFixture {
 protected:
  ProgramResult ask(const std::vector<std::string>& arguments) const {
    return runProgram(arguments, {.display = desktop.display(), .environment = sound.environment()});
  }
  ProgramResult sample() const {
    return ask(withRequest("sample-recording-system-audio", R"({"displayId":")" + displayID() + R"("})"));
  }
  void expect(const std::string& command, const std::string& reply) const {
    const ProgramResult result = ask({command});
    EXPECT_EQ(result.output, reply) << command;
    EXPECT_EQ(result.diagnostics, "") << command;
  }
  void expectPermission(const std::string& command, const std::string& status) const {
    expect(command, successReply(R"({"permission":")" + status + R"("})"));
  }

  // The code of the error with which a recording with the source ends that never begins.
  std::string refusalToRecord(const std::string& source) const {
    const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
    const TemporaryDirectory parent;
    std::filesystem::create_directory(parent / sessionID);
    const auto flag = [&](const std::string& name) {
      return "\"" + name + "\":" + (name == source ? "true" : "false") + ",";
    };
    const ProgramResult result = ask(withRequest(
        "record",
        R"({"sessionId":")" + sessionID + R"(","kind":"display","displayId":")" + displayID() +
            R"(","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputDirectory":")" +
            (parent / sessionID) + R"(","settings":{)" + flag("microphone") + flag("camera") +
            R"("systemAudio":false,"cameraPosition":"bottomRight","showsCursor":false,)"
            R"("showMouseClicks":false,"frameRate":15,"quality":"standard","outputScale":"original"}})"));
    EXPECT_EQ(result.exitStatus, 1);
    const json::Document event(result.output);
    EXPECT_EQ(event.root().member("event")->string(), "failed") << result.output;
    return event.root().member("error")->member("code")->string();
  }

  PrivateSoundServer sound;
};

const std::string microphoneDenied =
    failureReply("microphoneDenied", "Microphone access is required when microphone recording is enabled.");
const std::string cameraDenied =
    failureReply("cameraDenied", "Camera access is required when camera picture-in-picture is enabled.");
const std::string contentUnavailable =
    failureReply("contentUnavailable", "Shareable screen content is temporarily unavailable.");

TEST_F(SoundTest, DevicesAreListedWithTheDefaultFirst) {
  expect("recording-input-devices", successReply(R"({"cameras":[],"microphones":[]})"));
  const auto second = sound.source({"microphone", "--name", "mic.b", "--description", "Mic 10 / \u00E4"});
  const auto first = sound.source({"microphone", "--name", "mic.a", "--description", "mic 2"});
  const auto third = sound.source({"microphone", "--name", "mic.c", "--description", "Zoom"});
  const auto camera = sound.source({"camera", "--name", "cam.a", "--description", "Webcam"});
  sound.setDefaultNode("audio.source", "mic.c");
  expect("recording-input-devices",
         successReply(R"({"cameras":[{"id":"cam.a","isDefault":true,"name":"Webcam"}],)"
                      R"("microphones":[{"id":"mic.c","isDefault":true,"name":"Zoom"},)"
                      R"({"id":"mic.a","isDefault":false,"name":"mic 2"},)"
                      R"({"id":"mic.b","isDefault":false,"name":"Mic 10 / )"
                      "\u00E4"
                      R"("}]})"));
}

TEST_F(SoundTest, APlayedToneIsHeardAtItsLevel) {
  const auto player = sound.source(
      {"player", "--name", "tone", "--description", "Tone", "--amplitude", "0.5", "--frequency", "1000"});
  // It plays before long; what is judged is a sample of nothing but tone.
  double rms = 0;
  double peak = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  while (std::fabs(rms - 0.5 / std::sqrt(2)) > 0.01 && std::chrono::steady_clock::now() < deadline) {
    const ProgramResult result = sample();
    const Reply level(result);
    rms = level.data().member("rms")->number();
    peak = level.data().member("peak")->number();
    EXPECT_GT(level.data().member("sampleCount")->number(), 0);
    EXPECT_EQ(result.diagnostics, "");
  }
  EXPECT_NEAR(rms, 0.35355, 0.01);
  EXPECT_NEAR(peak, 0.5, 0.01);
}

TEST_F(SoundTest, SilenceIsHeardAsSilence) {
  const Reply level(sample());
  EXPECT_EQ(level.data().member("rms")->number(), 0);
  EXPECT_EQ(level.data().member("peak")->number(), 0);
  const double count = level.data().member("sampleCount")->number();
  EXPECT_GE(count, 2 * 0.2 * 48000);
  EXPECT_LE(count, 2 * 0.8 * 48000);
}

TEST_F(SoundTest, AnUnknownDisplayIsNotSampled) {
  const ProgramResult result = ask(withRequest("sample-recording-system-audio", R"({"displayId":"0"})"));
  EXPECT_EQ(result.output, contentUnavailable);
  EXPECT_EQ(result.exitStatus, 1);
}

TEST_F(SoundTest, AServerThatIsGoneOrStandsStillIsNotWaitedFor) {
  sound.stopAnswering();
  expectPermission("microphone-status", "restricted");
  expect("recording-input-devices", successReply(R"({"cameras":[],"microphones":[]})"));
  EXPECT_EQ(sample().output, contentUnavailable);
  sound.goOn();
  expectPermission("microphone-status", "granted");
  sound.killServer();
  expectPermission("camera-status", "restricted");
  expect("request-camera-permission", cameraDenied);
  expect("recording-input-devices", successReply(R"({"cameras":[],"microphones":[]})"));
  EXPECT_EQ(sample().output, contentUnavailable);
}

TEST_F(SoundTest, WithoutAPortalWhatIsReachedIsGranted) {
  for (const char* const command :
       {"microphone-status", "camera-status", "request-microphone-permission", "request-camera-permission",
        "interaction-permission-status", "request-interaction-permission"})
    expectPermission(command, "granted");
}

TEST_F(SoundTest, ThePortalsStoredAnswersCountAndAreNotAskedAgain) {
  const auto portal = startPortal(sound.environment(),
                                  {"--stored", "microphone=yes", "--stored", "camera=no", "--when", "never"});
  expectPermission("microphone-status", "granted");
  expectPermission("camera-status", "denied");
  expectPermission("request-microphone-permission", "granted");
  expect("request-camera-permission", cameraDenied);
}

TEST_F(SoundTest, AnUnansweredPermissionIsRequestedByThePortal) {
  {
    const auto portal = startPortal(sound.environment(), {"--response", "camera=1"});
    expectPermission("microphone-status", "notDetermined");
    expectPermission("camera-status", "notDetermined");
    expectPermission("request-microphone-permission", "granted");
    expect("request-camera-permission", cameraDenied);
    EXPECT_TRUE(portal->readLine()->starts_with("process "));
    EXPECT_EQ(portal->readLine(), "AccessDevice microphone");
    EXPECT_EQ(portal->readLine(), "AccessCamera camera");
  }
  const auto portal = startPortal(sound.environment(), {"--response", "microphone=1"});
  const ProgramResult result = ask({"request-microphone-permission"});
  EXPECT_EQ(result.output, microphoneDenied);
  EXPECT_EQ(result.exitStatus, 1);
  expectPermission("request-camera-permission", "granted");
}

TEST_F(SoundTest, ARecordingKeepsToAStoredRefusal) {
  const auto microphone = sound.source({"microphone", "--name", "mic"});
  const auto camera = sound.source({"camera", "--name", "cam"});
  const auto portal =
      startPortal(sound.environment(), {"--stored", "microphone=no", "--stored", "camera=no"});
  EXPECT_EQ(refusalToRecord("microphone"), "microphoneDenied");
  EXPECT_EQ(refusalToRecord("camera"), "cameraDenied");
}

TEST_F(SoundTest, ARecordingWithoutItsDevicesOrTheirServerTellsThatTheyAreUnavailable) {
  EXPECT_EQ(refusalToRecord("microphone"), "microphoneUnavailable");
  EXPECT_EQ(refusalToRecord("camera"), "cameraUnavailable");
  sound.killServer();
  EXPECT_EQ(refusalToRecord("microphone"), "microphoneUnavailable");
  EXPECT_EQ(refusalToRecord("camera"), "cameraUnavailable");
}

TEST_F(SoundTest, APortalThatGoesWhileItAsksLeavesWhatCanBeReached) {
  const auto portal = startPortal(sound.environment(), {"--when", "vanish"});
  expectPermission("request-microphone-permission", "granted");
}

} // namespace
} // namespace tessarin
