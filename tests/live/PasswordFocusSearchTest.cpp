#include "modules/accessibility/WatchedPasswordFocus.hpp"

#include "ScriptedAccessible.hpp"
#include "support/PrivateSessionBus.hpp"
#include "support/PrivateSoundServer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace tessarin {
namespace {

using accessibility::WatchedPasswordFocus;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// As the protocol of accessibility numbers them.
constexpr std::uint32_t passwordText = 40;
constexpr std::uint32_t text = 61;
constexpr int active = 1;
constexpr int focused = 12;
constexpr int showing = 25;
constexpr int managesDescendants = 31;

// Toolkits that cannot search their windows by themselves, and those that tell less than others.
class PasswordFocusSearchTest : public testing::Test {
 protected:
  static ScriptedAccessible::Objects windowWith(const ScriptedAccessible::Object& field) {
    return {{"/windows", {.children = {"/behind", "/front"}}},
            {"/behind", {.states = {showing}, .children = {"/behind/password"}}},
            {"/behind/password", {.role = passwordText, .states = {focused, showing}}},
            {"/front", {.states = {active, showing}, .children = {"/front/page"}}},
            {"/front/page", {.states = {focused, showing}, .children = {"/front/page/field"}}},
            {"/front/page/field", field}};
  }
  bool becomes(bool expected) {
    const auto deadline = Clock::now() + milliseconds(3000);
    while (focus.isFocused() != expected && Clock::now() < deadline)
      std::this_thread::sleep_for(milliseconds(1));
    return focus.isFocused() == expected;
  }

  PrivateSessionBus bus;
  const std::vector<std::pair<std::string, std::string>> variables{{"AT_SPI_BUS_ADDRESS", bus.address()}};
  const ProcessEnvironment environment{variables};
  WatchedPasswordFocus focus;
};

TEST_F(PasswordFocusSearchTest, TheActiveWindowIsWalkedToTheInnermostFieldWithTheFocus) {
  ScriptedAccessible application(bus.address(),
                                 windowWith({.role = passwordText, .states = {focused, showing}}));
  focus.begin();
  EXPECT_TRUE(focus.isFocused());
  EXPECT_EQ(application.asked("/behind/password"), 0);
}

TEST_F(PasswordFocusSearchTest, APlainFieldIsNone) {
  ScriptedAccessible application(bus.address(), windowWith({.role = text, .states = {focused, showing}}));
  focus.begin();
  EXPECT_FALSE(focus.isFocused());
  EXPECT_GE(application.asked("/front/page/field"), 1);
}

TEST_F(PasswordFocusSearchTest, WhatIsNotToBeSeenAndWhatHasNoEndIsNotWalked) {
  for (const std::vector<int>& states : {std::vector<int>{}, std::vector<int>{showing, managesDescendants}}) {
    auto objects = windowWith({.role = passwordText, .states = {focused, showing}});
    objects["/front/page"].states = states;
    ScriptedAccessible application(bus.address(), objects);
    WatchedPasswordFocus watched;
    watched.begin();
    EXPECT_FALSE(watched.isFocused());
    EXPECT_EQ(application.asked("/front/page"), 1);
    EXPECT_EQ(application.asked("/front/page/field"), 0);
  }
}

// A tree that leads back into itself, as of an application with a fault.
TEST_F(PasswordFocusSearchTest, ATreeWithoutEndEndsTheBeginningAllTheSame) {
  auto objects = windowWith({.role = text, .states = {showing}, .children = {"/front/page", "/front/page"}});
  objects["/front/page"].states = {showing};
  ScriptedAccessible application(bus.address(), objects);
  const auto start = Clock::now();
  focus.begin();
  EXPECT_LT(Clock::now() - start, WatchedPasswordFocus::beginPatience + milliseconds(400));
  EXPECT_FALSE(focus.isFocused());
}

// Its window becomes active before it has heard that anybody listens.
TEST_F(PasswordFocusSearchTest, AnApplicationThatComesLaterIsLookedAtUntilItTellsOfAFocus) {
  ScriptedAccessible application(bus.address(),
                                 {{"/windows", {.states = {showing}, .children = {"/password"}}},
                                  {"/password", {.role = passwordText, .states = {focused, showing}}},
                                  {"/plain", {.role = text, .states = {focused, showing}}}});
  focus.begin();
  application.tellCame();
  const auto deadline = Clock::now() + milliseconds(3000);
  while (application.asked("/windows") < 2 && Clock::now() < deadline)
    std::this_thread::sleep_for(milliseconds(1));
  EXPECT_GE(application.asked("/windows"), 2);
  EXPECT_FALSE(focus.isFocused());

  application.change("/windows", {.states = {active, showing}, .children = {"/password"}});
  EXPECT_TRUE(becomes(true));
  application.tellFocused("/plain", true);
  EXPECT_TRUE(becomes(false));
  std::this_thread::sleep_for(milliseconds(100)); // a look may be under way
  const int looks = application.asked("/windows");
  std::this_thread::sleep_for(milliseconds(700));
  EXPECT_EQ(application.asked("/windows"), looks);
  EXPECT_FALSE(focus.isFocused());
}

TEST_F(PasswordFocusSearchTest, AFieldThatLosesTheFocusWithoutAWordIsFoundOutWithinSeconds) {
  ScriptedAccessible application(bus.address(), windowWith({.role = passwordText, .states = {showing}}));
  focus.begin();
  EXPECT_FALSE(focus.isFocused());
  application.change("/front/page/field", {.role = passwordText, .states = {focused, showing}});
  application.tellFocused("/front/page/field", true);
  EXPECT_TRUE(becomes(true));
  application.change("/front/page/field", {.role = passwordText, .states = {showing}});
  EXPECT_TRUE(becomes(false));
}

} // namespace
} // namespace tessarin
