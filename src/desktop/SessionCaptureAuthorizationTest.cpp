#include "desktop/SessionCaptureAuthorization.hpp"

#include "support/ScriptedDevices.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace tessarin {
namespace {

class ScriptedPortal final : public DevicePortal {
 public:
  PortalAnswer audio = PortalAnswer::noPortal;
  PortalAnswer video = PortalAnswer::noPortal;
  std::optional<bool> reply;
  std::function<void()> whileAsking = [] {};
  std::vector<MediaKind> asked;

  PortalAnswer storedAnswer(MediaKind kind) override { return kind == MediaKind::audio ? audio : video; }
  std::optional<bool> ask(MediaKind kind) override {
    asked.push_back(kind);
    whileAsking();
    return reply;
  }
};

class SessionCaptureAuthorizationTest : public testing::Test {
 protected:
  ScriptedDevices devices;
  ScriptedPortal portal;
  SessionCaptureAuthorization authorization{devices, portal};
};

constexpr PortalAnswer everyAnswer[] = {PortalAnswer::noPortal, PortalAnswer::unset, PortalAnswer::yes,
                                        PortalAnswer::no};

TEST_F(SessionCaptureAuthorizationTest, TellsTheStoredAnswerOfEachKindWithoutAsking) {
  const struct {
    PortalAnswer stored;
    CaptureAuthorizationStatus status;
  } cases[] = {
      {PortalAnswer::noPortal, CaptureAuthorizationStatus::authorized},
      {PortalAnswer::yes, CaptureAuthorizationStatus::authorized},
      {PortalAnswer::no, CaptureAuthorizationStatus::denied},
      {PortalAnswer::unset, CaptureAuthorizationStatus::notDetermined},
  };
  for (const auto& each : cases) {
    portal.audio = each.stored;
    portal.video = PortalAnswer::yes;
    EXPECT_EQ(authorization.status(MediaKind::audio), each.status);
    EXPECT_EQ(authorization.status(MediaKind::video), CaptureAuthorizationStatus::authorized);
    portal.video = each.stored;
    EXPECT_EQ(authorization.status(MediaKind::video), each.status);
  }
  EXPECT_TRUE(portal.asked.empty());
}

TEST_F(SessionCaptureAuthorizationTest, WithoutAServerNothingCanBeGranted) {
  devices.reachable = false;
  portal.reply = true;
  for (const PortalAnswer stored : everyAnswer) {
    portal.audio = portal.video = stored;
    for (const MediaKind kind : {MediaKind::audio, MediaKind::video}) {
      EXPECT_EQ(authorization.status(kind), CaptureAuthorizationStatus::restricted);
      EXPECT_FALSE(authorization.requestAccess(kind));
    }
  }
  EXPECT_TRUE(portal.asked.empty());
}

TEST_F(SessionCaptureAuthorizationTest, WhatIsKnownIsNotAskedAgain) {
  portal.reply = false;
  portal.audio = PortalAnswer::yes;
  EXPECT_TRUE(authorization.requestAccess(MediaKind::audio));
  portal.audio = PortalAnswer::noPortal;
  EXPECT_TRUE(authorization.requestAccess(MediaKind::audio));
  portal.reply = true;
  portal.audio = PortalAnswer::no;
  EXPECT_FALSE(authorization.requestAccess(MediaKind::audio));
  EXPECT_TRUE(portal.asked.empty());
}

TEST_F(SessionCaptureAuthorizationTest, ThePersonsAnswerCounts) {
  portal.audio = portal.video = PortalAnswer::unset;
  portal.reply = true;
  EXPECT_TRUE(authorization.requestAccess(MediaKind::audio));
  portal.reply = false;
  EXPECT_FALSE(authorization.requestAccess(MediaKind::video));
  EXPECT_EQ(portal.asked, (std::vector<MediaKind>{MediaKind::audio, MediaKind::video}));
}

TEST_F(SessionCaptureAuthorizationTest, WithNothingToAskWithWhatCanBeReachedCounts) {
  portal.audio = PortalAnswer::unset;
  portal.reply = std::nullopt;
  EXPECT_TRUE(authorization.requestAccess(MediaKind::audio));
}

TEST_F(SessionCaptureAuthorizationTest, AServerThatGoesWhileThePersonThinksGrantsNothing) {
  portal.audio = PortalAnswer::unset;
  portal.whileAsking = [this] { devices.reachable = false; };
  for (const std::optional<bool> reply : {std::optional(true), std::optional<bool>()}) {
    devices.reachable = true;
    portal.reply = reply;
    EXPECT_FALSE(authorization.requestAccess(MediaKind::audio));
  }
  EXPECT_EQ(portal.asked.size(), 2U);
}

} // namespace
} // namespace tessarin
