#include "modules/portal/DesktopPortal.hpp"

#include "support/PrivateSessionBus.hpp"
#include "support/PrivateSoundServer.hpp"
#include "support/TestPortal.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <future>

namespace tessarin {
namespace {

using Arguments = std::vector<std::string>;

// The portal of our own, and the backend that asks it, which finds it by the environment.
class PortalTest : public testing::Test {
 protected:
  std::unique_ptr<ChildProcess> start(const Arguments& arguments) const {
    return startPortal(bus.environment(), arguments);
  }

  PrivateSessionBus bus;
  ProcessEnvironment environment{bus.environment()};
  portal::DesktopPortal portal;
};

TEST_F(PortalTest, TellsWhatIsStoredForAProcessWithoutSandbox) {
  const struct {
    Arguments arguments;
    PortalAnswer microphone;
    PortalAnswer camera;
  } cases[] = {
      {{"--stored", "microphone=yes"}, PortalAnswer::yes, PortalAnswer::unset},
      {{"--stored", "microphone=no", "--stored", "camera=yes"}, PortalAnswer::no, PortalAnswer::yes},
      {{"--stored", "camera=no"}, PortalAnswer::unset, PortalAnswer::no},
      {{"--stored", "microphone=ask"}, PortalAnswer::unset, PortalAnswer::unset},
      {{"--stored", "microphone=", "--stored", "camera=Yes"}, PortalAnswer::unset, PortalAnswer::unset},
      {{"--stored", "microphone=yes,no"}, PortalAnswer::unset, PortalAnswer::unset},
      {{"--stored-for", "org.other", "microphone=yes"}, PortalAnswer::unset, PortalAnswer::unset},
      {{"--stored-for", "org.other", "microphone=yes", "--stored", "microphone=no", "--stored-for", "~",
        "camera=no"},
       PortalAnswer::no,
       PortalAnswer::unset},
      {{}, PortalAnswer::unset, PortalAnswer::unset},
      {{"--without", "store"}, PortalAnswer::unset, PortalAnswer::unset},
  };
  for (const auto& each : cases) {
    const auto process = start(each.arguments);
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), each.microphone)
        << testing::PrintToString(each.arguments);
    EXPECT_EQ(portal.storedAnswer(MediaKind::video), each.camera) << testing::PrintToString(each.arguments);
  }
}

TEST_F(PortalTest, ADeviceThatNoPortalGuardsHasNone) {
  {
    const auto process = start({"--without", "device", "--stored", "microphone=no"});
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::noPortal);
    EXPECT_EQ(portal.storedAnswer(MediaKind::video), PortalAnswer::unset);
    EXPECT_EQ(portal.ask(MediaKind::audio), std::nullopt);
  }
  {
    const auto process = start({"--without", "camera", "--stored", "camera=no"});
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::unset);
    EXPECT_EQ(portal.storedAnswer(MediaKind::video), PortalAnswer::noPortal);
    EXPECT_EQ(portal.ask(MediaKind::video), std::nullopt);
  }
  {
    const auto process = start({"--without", "portal", "--stored", "microphone=no"});
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::noPortal);
  }
  EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::noPortal);
  EXPECT_EQ(portal.ask(MediaKind::video), std::nullopt);
}

TEST_F(PortalTest, AsksForTheDeviceAndTellsTheAnswer) {
  for (const int response : {0, 1, 2}) {
    const auto process = start({"--response", "microphone=" + std::to_string(response), "--response",
                                "camera=" + std::to_string(response), "--decoy"});
    EXPECT_EQ(portal.ask(MediaKind::audio), response == 0);
    EXPECT_EQ(process->readLine(), "process " + std::to_string(::getpid()));
    EXPECT_EQ(process->readLine(), "AccessDevice microphone");
    EXPECT_EQ(portal.ask(MediaKind::video), response == 0);
    EXPECT_EQ(process->readLine(), "AccessCamera camera");
  }
}

TEST_F(PortalTest, NoAnswerIsMissedHoweverSoonItComesAndWhereverItComesFrom) {
  for (const Arguments& arguments :
       {Arguments{"--when", "before"}, {"--other-path"}, {"--other-path", "--when", "before", "--decoy"}}) {
    const auto process = start(arguments);
    EXPECT_EQ(portal.ask(MediaKind::audio), true) << testing::PrintToString(arguments);
  }
}

TEST_F(PortalTest, APortalThatTakesNoRequestGrantsNothing) {
  const auto process = start({"--refuse"});
  EXPECT_EQ(portal.ask(MediaKind::audio), false);
  EXPECT_EQ(portal.ask(MediaKind::video), false);
}

TEST_F(PortalTest, APortalThatGoesLeavesNothingToAskWith) {
  const auto process = start({"--when", "vanish"});
  EXPECT_EQ(portal.ask(MediaKind::audio), std::nullopt);
  EXPECT_EQ(process->waitForEnd(), 0);
}

TEST_F(PortalTest, AnAnswerMayTakeLongAndThePortalGoMeanwhile) {
  const auto process = start({"--when", "never"});
  auto answer = std::async(std::launch::async, [this] { return portal.ask(MediaKind::video); });
  EXPECT_EQ(process->readLine(), "AccessCamera camera");
  // Longer than anything but a person may take.
  EXPECT_EQ(answer.wait_for(portal::BusConnection::patience + std::chrono::milliseconds(300)),
            std::future_status::timeout);
  process->end(SIGKILL);
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(answer.get(), std::nullopt);
}

TEST_F(PortalTest, ABusThatGoesEndsTheWaiting) {
  const auto process = start({"--when", "never"});
  auto answer = std::async(std::launch::async, [this] { return portal.ask(MediaKind::video); });
  EXPECT_EQ(process->readLine(), "AccessCamera camera");
  bus.kill();
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(answer.get(), std::nullopt);
}

TEST_F(PortalTest, WhoDoesNotAnswerIsNotWaitedForLong) {
  const auto limit = 2 * portal::BusConnection::patience;
  const auto expectNone = [&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::noPortal);
    EXPECT_LT(std::chrono::steady_clock::now() - start, limit);
  };
  const auto process = start({"--mute"});
  expectNone();
  bus.stopAnswering();
  expectNone();
}

TEST(PortalWithoutBus, ThereIsNone) {
  for (const char* const address : {"disabled:", "unix:path=/nowhere/bus", ""}) {
    const ProcessEnvironment environment(
        {{"DBUS_SESSION_BUS_ADDRESS", address}, {"XDG_RUNTIME_DIR", "/nowhere"}});
    portal::DesktopPortal portal;
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::noPortal) << address;
    EXPECT_EQ(portal.ask(MediaKind::audio), std::nullopt) << address;
  }
}

} // namespace
} // namespace tessarin
