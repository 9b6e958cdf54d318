#include "desktop/SpeechPermissionService.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

constexpr auto unknown = static_cast<SpeechAuthorizationStatus>(77);

class ScriptedSpeech final : public SpeechAuthorization {
 public:
  SpeechAuthorizationStatus known = SpeechAuthorizationStatus::notDetermined;
  SpeechAuthorizationStatus answer = SpeechAuthorizationStatus::authorized;
  int requests = 0;

  SpeechAuthorizationStatus status() override { return known; }
  SpeechAuthorizationStatus requestAuthorization() override {
    ++requests;
    return answer;
  }
};

const struct {
  SpeechAuthorizationStatus platform;
  PermissionStatus told;
} table[] = {
    {SpeechAuthorizationStatus::authorized, PermissionStatus::granted},
    {SpeechAuthorizationStatus::denied, PermissionStatus::denied},
    {SpeechAuthorizationStatus::notDetermined, PermissionStatus::notDetermined},
    {SpeechAuthorizationStatus::restricted, PermissionStatus::restricted},
    {unknown, PermissionStatus::restricted},
};

TEST(SpeechPermissionService, TellsTheStatusWithoutAsking) {
  for (const auto& each : table) {
    ScriptedSpeech speech;
    speech.known = each.platform;
    EXPECT_EQ(SpeechPermissionService::status(speech), each.told);
    EXPECT_EQ(speech.requests, 0);
  }
}

TEST(SpeechPermissionService, TellsWhateverThePlatformSaysWhenAsked) {
  for (const auto& each : table) {
    ScriptedSpeech speech;
    speech.answer = each.platform;
    EXPECT_EQ(SpeechPermissionService::request(speech), each.told);
    EXPECT_EQ(speech.requests, 1);
  }
}

TEST(SpeechPermissionService, AsksOnlyWhereNobodyHasAnswered) {
  for (const auto& each : table) {
    if (each.platform == SpeechAuthorizationStatus::notDetermined)
      continue;
    ScriptedSpeech speech;
    speech.known = each.platform;
    EXPECT_EQ(SpeechPermissionService::request(speech), each.told);
    EXPECT_EQ(speech.requests, 0);
  }
}

// The two enumerations number refusal and restriction the other way round, so no number may pass from one
// table to the other.
TEST(SpeechPermissionService, DoesNotShareNumbersWithCaptureDevices) {
  EXPECT_EQ(static_cast<int>(CaptureAuthorizationStatus::denied),
            static_cast<int>(SpeechAuthorizationStatus::restricted));
  EXPECT_EQ(static_cast<int>(CaptureAuthorizationStatus::restricted),
            static_cast<int>(SpeechAuthorizationStatus::denied));
}

TEST(SpeechPermissionService, NothingStandsBetweenASessionAndLocalRecognition) {
  LocalSpeechAuthorization speech;
  EXPECT_EQ(SpeechPermissionService::status(speech), PermissionStatus::granted);
  EXPECT_EQ(SpeechPermissionService::request(speech), PermissionStatus::granted);
}

} // namespace
} // namespace tessarin
