#include "desktop/CapturePermissionService.hpp"

#include "support/ScriptedDevices.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using testing::ElementsAre;

// One that no version of the platform has yet.
constexpr auto unknown = static_cast<CaptureAuthorizationStatus>(77);

TEST(CapturePermissionService, TellsTheStatusWithoutAsking) {
  const struct {
    CaptureAuthorizationStatus platform;
    PermissionStatus told;
  } cases[] = {
      {CaptureAuthorizationStatus::authorized, PermissionStatus::granted},
      {CaptureAuthorizationStatus::denied, PermissionStatus::denied},
      {CaptureAuthorizationStatus::notDetermined, PermissionStatus::notDetermined},
      {CaptureAuthorizationStatus::restricted, PermissionStatus::restricted},
      {unknown, PermissionStatus::restricted},
  };
  for (const auto& each : cases) {
    ScriptedCaptureAuthorization authorization;
    authorization.audio = each.platform;
    authorization.video = CaptureAuthorizationStatus::authorized;
    EXPECT_EQ(MicrophonePermissionService(authorization).status(), each.told);
    EXPECT_EQ(CameraPermissionService(authorization).status(), PermissionStatus::granted);
    authorization.video = each.platform;
    EXPECT_EQ(CameraPermissionService(authorization).status(), each.told);
    EXPECT_THAT(authorization.calls, ElementsAre("status audio", "status video", "status video"));
  }
}

TEST(CapturePermissionService, AsksOnlyWhereNobodyHasAnswered) {
  const struct {
    CaptureAuthorizationStatus platform;
    PermissionStatus told;
  } cases[] = {
      {CaptureAuthorizationStatus::authorized, PermissionStatus::granted},
      {CaptureAuthorizationStatus::denied, PermissionStatus::denied},
      {CaptureAuthorizationStatus::restricted, PermissionStatus::restricted},
      {unknown, PermissionStatus::restricted},
  };
  for (const auto& each : cases) {
    ScriptedCaptureAuthorization authorization;
    authorization.audio = authorization.video = each.platform;
    EXPECT_EQ(MicrophonePermissionService(authorization).request(), each.told);
    EXPECT_EQ(CameraPermissionService(authorization).request(), each.told);
    EXPECT_THAT(authorization.calls, ElementsAre("status audio", "status video"));
  }
}

TEST(CapturePermissionService, TellsWhatThePersonAnswered) {
  for (const bool grants : {true, false}) {
    ScriptedCaptureAuthorization authorization;
    authorization.audio = authorization.video = CaptureAuthorizationStatus::notDetermined;
    authorization.grants = grants;
    const PermissionStatus told = grants ? PermissionStatus::granted : PermissionStatus::denied;
    EXPECT_EQ(MicrophonePermissionService(authorization).request(), told);
    EXPECT_EQ(CameraPermissionService(authorization).request(), told);
    EXPECT_THAT(authorization.calls,
                ElementsAre("status audio", "request audio", "status video", "request video"));
  }
}

} // namespace
} // namespace tessarin
