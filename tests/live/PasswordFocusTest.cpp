#include "modules/accessibility/WatchedPasswordFocus.hpp"

#include "base/HostClock.hpp"
#include "support/PrivateAccessibility.hpp"
#include "support/PrivateSoundServer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <thread>

namespace tessarin {
namespace {

using accessibility::WatchedPasswordFocus;
using Variables = std::vector<std::pair<std::string, std::string>>;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Whether it is so before the time is over.
bool becomes(PasswordFocus& focus, bool expected, milliseconds limit = seconds(5)) {
  const auto deadline = Clock::now() + limit;
  while (focus.isFocused() != expected) {
    if (Clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

// Whether it stays so, for longer than a field is left without being asked again.
bool stays(PasswordFocus& focus, bool expected) {
  return !becomes(focus, !expected, milliseconds(1500));
}

std::size_t threadsOfThis() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

// Begins, and ends again, without hanging at either.
void expectQuick(bool isFocused) {
  const auto threads = threadsOfThis();
  auto focus = std::make_optional<WatchedPasswordFocus>();
  const auto start = Clock::now();
  focus->begin();
  EXPECT_LT(Clock::now() - start, WatchedPasswordFocus::beginPatience + milliseconds(400));
  EXPECT_EQ(focus->isFocused(), isFocused);
  const auto end = Clock::now();
  focus.reset();
  EXPECT_LT(Clock::now() - end, milliseconds(300));
  EXPECT_EQ(threadsOfThis(), threads);
}

class PasswordFocusTest : public testing::Test {
 protected:
  // The keyboard goes to that window; without a window manager the server does what it is asked to.
  void giveKeyboardTo(std::uint32_t window) const {
    desktop.run({"xdotool", "windowfocus", std::to_string(window)});
  }

  PrivateDesktop desktop{{.width = 640, .height = 480}};
  PrivateAccessibility accessible{desktop};
  ProcessEnvironment environment{accessible.environment()};
  WatchedPasswordFocus focus;
};

TEST_F(PasswordFocusTest, FollowsTheFocusIntoAPasswordAndOutOfIt) {
  TestEntry entry(accessible);
  EXPECT_FALSE(focus.isFocused());
  focus.begin();
  EXPECT_FALSE(focus.isFocused());
  for (int time = 0; time < 5; ++time) {
    entry.command("focus password");
    EXPECT_TRUE(becomes(focus, true)) << time;
    entry.command("focus plain");
    EXPECT_TRUE(becomes(focus, false)) << time;
  }
  entry.command("focus password");
  EXPECT_TRUE(becomes(focus, true));
  EXPECT_TRUE(stays(focus, true));
}

TEST_F(PasswordFocusTest, APasswordThatHasLostTheFocusIsKnownToHaveHadIt) {
  TestEntry entry(accessible);
  focus.begin();
  const MonotonicHostClock clock;
  // A field that turned out to be a plain one has never been one for passwords.
  EXPECT_FALSE(focus.wasFocusedSince(MediaTime::zero()));
  bool isKnown = false;
  for (milliseconds wait(10); !isKnown && wait < seconds(5); wait *= 4) {
    const MediaTime before = clock.now();
    EXPECT_FALSE(focus.wasFocusedSince(before));
    entry.command("focus password");
    EXPECT_TRUE(becomes(focus, true));
    EXPECT_TRUE(focus.wasFocusedSince(clock.now()));
    EXPECT_TRUE(focus.wasFocusedSince(MediaTime()));
    std::this_thread::sleep_for(wait); // until it has said what it is
    entry.command("focus plain");
    EXPECT_TRUE(becomes(focus, false));
    isKnown = focus.wasFocusedSince(before);
    EXPECT_FALSE(focus.wasFocusedSince(clock.now()));
    EXPECT_FALSE(focus.wasFocusedSince(MediaTime()));
  }
  EXPECT_TRUE(isKnown);
}

TEST_F(PasswordFocusTest, AFieldThatHasTheFocusAlreadyIsKnownWhenBeginReturns) {
  TestEntry entry(accessible, "password");
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  EXPECT_TRUE(stays(focus, true));
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  entry.command("focus plain");
  EXPECT_TRUE(becomes(focus, false));
}

TEST_F(PasswordFocusTest, AWindowThatComesLaterIsSeen) {
  focus.begin();
  EXPECT_FALSE(focus.isFocused());
  {
    TestEntry entry(accessible, "password");
    EXPECT_TRUE(becomes(focus, true));
    entry.command("quit");
    EXPECT_TRUE(becomes(focus, false));
  }
  TestEntry another(accessible, "password");
  EXPECT_TRUE(becomes(focus, true));
}

TEST_F(PasswordFocusTest, AnApplicationThatIsKilledHasNoFocus) {
  TestEntry entry(accessible, "password");
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  entry.kill();
  EXPECT_TRUE(becomes(focus, false));
}

TEST_F(PasswordFocusTest, AWindowWithoutAccessibilityTakesTheFocusAway) {
  TestEntry entry(accessible, "password");
  const auto client = desktop.client({});
  focus.begin();
  EXPECT_TRUE(becomes(focus, true));
  for (int time = 0; time < 3; ++time) {
    giveKeyboardTo(client->window());
    EXPECT_TRUE(becomes(focus, false)) << time;
    EXPECT_TRUE(stays(focus, false)) << time;
    giveKeyboardTo(entry.window());
    EXPECT_TRUE(becomes(focus, true)) << time;
  }
}

TEST(PasswordFocusWithWindowManager, FollowsTheWindowThatTheManagerMakesActive) {
  const PrivateDesktop desktop({.width = 640, .height = 480, .hasWindowManager = true});
  const PrivateAccessibility accessible(desktop);
  const ProcessEnvironment environment(accessible.environment());
  WatchedPasswordFocus focus;
  TestEntry entry(accessible, "password");
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  {
    const auto client = desktop.client({});
    desktop.run({"xdotool", "windowactivate", "--sync", client->windowID()});
    EXPECT_TRUE(becomes(focus, false));
    entry.command("present");
    EXPECT_TRUE(becomes(focus, true));
    desktop.run({"xdotool", "windowactivate", "--sync", client->windowID()});
    EXPECT_TRUE(becomes(focus, false));
  }
  // The window that had the keyboard is gone, and the manager gives it to the one behind it.
  EXPECT_TRUE(becomes(focus, true));
}

TEST_F(PasswordFocusTest, APasswordInAWindowWithoutTheKeyboardIsNoneUntilItHasIt) {
  TestEntry entry(accessible, "password");
  const auto client = desktop.client({});
  giveKeyboardTo(client->window());
  focus.begin();
  EXPECT_FALSE(focus.isFocused());
  giveKeyboardTo(entry.window());
  EXPECT_TRUE(becomes(focus, true));
}

TEST_F(PasswordFocusTest, OfTwoApplicationsTheOneWithTheKeyboardCounts) {
  TestEntry behind(accessible, "password");
  TestEntry front(accessible, "plain");
  focus.begin();
  EXPECT_FALSE(focus.isFocused());
  giveKeyboardTo(behind.window());
  EXPECT_TRUE(becomes(focus, true));
  // What the other does within its window does not hide the password.
  front.command("focus password");
  front.command("focus plain");
  EXPECT_TRUE(stays(focus, true));
  giveKeyboardTo(front.window());
  EXPECT_TRUE(becomes(focus, false));
  EXPECT_TRUE(stays(focus, false));
}

TEST_F(PasswordFocusTest, APasswordThatIsShownIsNoSecretAndOneThatIsHiddenAgainIs) {
  TestEntry entry(accessible, "password");
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  entry.command("show");
  EXPECT_TRUE(becomes(focus, false));
  entry.command("hide");
  EXPECT_TRUE(becomes(focus, true));
}

TEST_F(PasswordFocusTest, AnApplicationThatHangsSaysNothingUntilItAnswersAgain) {
  TestEntry entry(accessible, "password");
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  entry.command("hang 5500");
  EXPECT_FALSE(becomes(focus, false, milliseconds(2500)));
  EXPECT_TRUE(becomes(focus, false, seconds(4)));
  EXPECT_TRUE(becomes(focus, true, seconds(8)));
  EXPECT_EQ(entry.text("password"), "");
}

TEST_F(PasswordFocusTest, AnApplicationThatHangsHoldsUpTheBeginningForABoundedTimeOnly) {
  TestEntry entry(accessible, "password");
  entry.command("hang 2500");
  const auto start = Clock::now();
  focus.begin();
  EXPECT_LT(Clock::now() - start, WatchedPasswordFocus::beginPatience + milliseconds(400));
  // What it tells later still counts.
  EXPECT_TRUE(becomes(focus, true));
}

TEST_F(PasswordFocusTest, ABusThatStopsAnsweringHangsNobodyAndLeavesNoAnswerForEver) {
  TestEntry entry(accessible, "password");
  {
    WatchedPasswordFocus watched;
    watched.begin();
    EXPECT_TRUE(watched.isFocused());
    accessible.stopAnswering();
    EXPECT_TRUE(watched.isFocused());
    EXPECT_TRUE(becomes(watched, false, seconds(6)));
    expectQuick(false);
    accessible.answerAgain();
    EXPECT_TRUE(becomes(watched, true));
    accessible.stopAnswering();
  }
  expectQuick(false);
  accessible.sessionBus().stopAnswering();
  expectQuick(false);
}

TEST_F(PasswordFocusTest, ABusThatDiesLeavesNothingFocused) {
  TestEntry entry(accessible, "password");
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  accessible.kill();
  EXPECT_TRUE(becomes(focus, false));
  EXPECT_TRUE(stays(focus, false));
}

TEST_F(PasswordFocusTest, TheSessionsBusMayStopAnsweringSinceItsWorkIsDone) {
  TestEntry entry(accessible);
  focus.begin();
  accessible.sessionBus().stopAnswering();
  entry.command("focus password");
  EXPECT_TRUE(becomes(focus, true));
}

TEST_F(PasswordFocusTest, MayBeDestroyedAtAnyMoment) {
  TestEntry entry(accessible, "password");
  { const WatchedPasswordFocus never; }
  for (int time = 0; time < 20; ++time)
    expectQuick(true);
}

TEST(PasswordFocusWithoutBus, NothingIsFocusedAndNobodyWaits) {
  for (const char* const address : {"disabled:", "unix:path=/nowhere/bus", "nonsense"}) {
    const ProcessEnvironment environment(
        {{"DBUS_SESSION_BUS_ADDRESS", address}, {"AT_SPI_BUS_ADDRESS", ""}, {"XDG_RUNTIME_DIR", "/nowhere"}});
    const auto start = Clock::now();
    expectQuick(false);
    EXPECT_LT(Clock::now() - start, milliseconds(500)) << address;
  }
  for (const char* const address : {"unix:path=/nowhere/bus", "nonsense"}) {
    const ProcessEnvironment environment{Variables{{"AT_SPI_BUS_ADDRESS", address}}};
    const auto start = Clock::now();
    expectQuick(false);
    EXPECT_LT(Clock::now() - start, milliseconds(500)) << address;
  }
}

TEST(PasswordFocusWithoutBus, ASessionWithoutAccessibilityHasNothingFocused) {
  const PrivateSessionBus bus;
  auto variables = bus.environment();
  variables.emplace_back("AT_SPI_BUS_ADDRESS", "");
  const ProcessEnvironment environment(variables);
  const auto start = Clock::now();
  expectQuick(false);
  EXPECT_LT(Clock::now() - start, milliseconds(500));
}

TEST(PasswordFocusWithoutBus, ABusThatLetsNobodyInIsNotWaitedForLong) {
  PrivateSessionBus bus;
  auto variables = bus.environment();
  variables.emplace_back("AT_SPI_BUS_ADDRESS", "");
  const ProcessEnvironment environment(variables);
  bus.stopAnswering();
  expectQuick(false);
}

// A bus without the registry, on which nothing is started by asking for it.
TEST(PasswordFocusWithoutBus, ABusWithoutARegistryHasNothingFocused) {
  const PrivateSessionBus bus;
  const ProcessEnvironment environment{Variables{{"AT_SPI_BUS_ADDRESS", bus.address()}}};
  const auto start = Clock::now();
  expectQuick(false);
  EXPECT_LT(Clock::now() - start, milliseconds(500));
}

} // namespace
} // namespace tessarin
