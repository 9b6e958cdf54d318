#include "Program.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <sys/statvfs.h>

#include <cmath>

namespace tessarin {
namespace {

// Without a display, and without a server of sound, a bus or a portal.
class PreflightTest : public testing::Test {
 protected:
  ProgramResult run(const std::vector<std::string>& arguments) const {
    return runProgram(arguments, {.environment = {{"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                                                  {"XDG_RUNTIME_DIR", directory / "run"},
                                                  {"PIPEWIRE_RUNTIME_DIR", directory / "run"},
                                                  {"PIPEWIRE_REMOTE", "pipewire-0"},
                                                  {"XDG_CACHE_HOME", directory / "caches"}}});
  }
  void expect(const std::vector<std::string>& arguments, const std::string& reply, int exitStatus) const {
    const ProgramResult result = run(arguments);
    EXPECT_EQ(result.output, reply) << arguments[0];
    EXPECT_EQ(result.exitStatus, exitStatus) << arguments[0];
    EXPECT_EQ(result.diagnostics, "") << arguments[0];
  }

  TemporaryDirectory directory;
};

const std::string granted = successReply(R"({"permission":"granted"})");
const std::string denied = successReply(R"({"permission":"denied"})");
const std::string notDetermined = successReply(R"({"permission":"notDetermined"})");
const std::string restricted = successReply(R"({"permission":"restricted"})");

TEST_F(PreflightTest, WhatCannotBeReachedIsRestricted) {
  expect({"microphone-status"}, restricted, 0);
  expect({"camera-status"}, restricted, 0);
  expect(
      {"request-microphone-permission"},
      failureReply("microphoneDenied", "Microphone access is required when microphone recording is enabled."),
      1);
  expect({"request-camera-permission"},
         failureReply("cameraDenied", "Camera access is required when camera picture-in-picture is enabled."),
         1);
}

TEST_F(PreflightTest, WithoutADisplayNoInputIsWatched) {
  expect({"interaction-permission-status"}, notDetermined, 0);
  expect({"request-interaction-permission"}, denied, 0);
}

TEST_F(PreflightTest, NothingIsNeededForSpeech) {
  expect({"speech-permission-status"}, granted, 0);
  expect({"request-speech-permission"}, granted, 0);
}

TEST_F(PreflightTest, WithoutAServerThereAreNoDevices) {
  expect({"recording-input-devices"}, successReply(R"({"cameras":[],"microphones":[]})"), 0);
}

TEST_F(PreflightTest, WithoutADisplayNoSoundIsSampled) {
  expect(withRequest("sample-recording-system-audio", R"({"displayId":"1"})"),
         failureReply("permissionDenied", "Screen Recording permission is required to capture the display."),
         1);
}

TEST_F(PreflightTest, AvailableBytesAreThoseOfTheVolume) {
  const ProgramResult result = run({"recording-available-bytes"});
  EXPECT_EQ(result.exitStatus, 0);
  const std::string head = R"({"data":)";
  const std::string tail = ",\"ok\":true,\"schemaVersion\":1}\n";
  ASSERT_TRUE(result.output.starts_with(head)) << result.output;
  ASSERT_TRUE(result.output.ends_with(tail)) << result.output;
  const std::string number =
      result.output.substr(head.size(), result.output.size() - head.size() - tail.size());
  ASSERT_FALSE(number.empty());
  EXPECT_EQ(number.find_first_not_of("0123456789"), std::string::npos) << number;
  struct statvfs volume {};
  ASSERT_EQ(::statvfs(directory.path().c_str(), &volume), 0);
  const double available = static_cast<double>(volume.f_bavail) * static_cast<double>(volume.f_frsize);
  // Others write to the volume meanwhile.
  EXPECT_NEAR(std::stod(number), available, 0x1p30);
}

} // namespace
} // namespace tessarin
