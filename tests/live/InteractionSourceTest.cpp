#include "live/InteractionTesting.hpp"

#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

// Far less than hands need, and more than nothing: of thousands at once that nobody has read yet a server's
// record may lose some.
constexpr auto handsPause = 500us;

class InteractionMonitoring : public InteractionFixture {
 protected:
  // Keys that repeat quickly.
  void startRepeatingDesktop() {
    startDesktop();
    desktop->run({"xset", "r", "rate", "200", "50"});
  }

  std::vector<bool> repetitionsOf(std::uint16_t code) {
    std::vector<bool> repetitions;
    for (const KeyPress& press : keysSoFar())
      if (press.evdevCode == code)
        repetitions.push_back(press.isRepeat);
    return repetitions;
  }
};

TEST_F(InteractionMonitoring, SeesEachClickHoweverShort) {
  startDesktop();
  watch();
  input->moveTo(320, 240);
  constexpr std::size_t count = 1000;
  for (std::size_t i = 0; i < count; ++i) {
    input->click(i % 2 == 0 ? 1 : 3);
    std::this_thread::sleep_for(handsPause);
  }
  const auto seen = presses.buttons(count);
  ASSERT_EQ(seen.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(seen[i].button, i % 2 == 0 ? InteractionMouseButton::left : InteractionMouseButton::right);
    EXPECT_EQ(seen[i].location, (PointerLocation{320, 240}));
  }
}

TEST_F(InteractionMonitoring, TellsButtonsApartAndNoWheels) {
  startDesktop();
  watch();
  for (std::uint8_t number = 1; number <= 9; ++number)
    input->click(number);
  const auto seen = presses.buttons(5);
  std::vector<InteractionMouseButton> buttons;
  for (const auto& press : seen)
    buttons.push_back(press.button);
  using enum InteractionMouseButton;
  EXPECT_EQ(buttons, (std::vector{left, other, right, other, other}));
}

TEST_F(InteractionMonitoring, FollowsTheMappingOfButtons) {
  startDesktop();
  watch();
  input->click(1);
  desktop->run({"xmodmap", "-e", "pointer = 3 2 1"});
  std::this_thread::sleep_for(200ms); // the change reaches the monitor by another way than clicks do
  input->click(1);
  const auto seen = presses.buttons(2);
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_EQ(seen[0].button, InteractionMouseButton::left);
  EXPECT_EQ(seen[1].button, InteractionMouseButton::right);
}

TEST_F(InteractionMonitoring, PlacesClicksInPointsOfAScaledDisplay) {
  startDesktop();
  desktop->run({"sh", "-c", "echo 'Xft.dpi: 192' | xrdb -merge"});
  watch();
  input->moveTo(301, 200);
  input->click();
  EXPECT_EQ(presses.buttons(1).at(0).location, (PointerLocation{150.5, 100}));
}

TEST_F(InteractionMonitoring, StampsPressesWithTheTimeAtWhichTheyHappened) {
  startDesktop();
  watch();
  constexpr MediaTime rounding = MediaTime::milliseconds(1);
  for (int i = 0; i < 20; ++i) {
    const MediaTime before = clock.now() - rounding;
    input->click();
    input->tap(KEY_A);
    const MediaTime after = clock.now();
    const auto buttons = presses.buttons(static_cast<std::size_t>(i) + 1);
    const auto keys = presses.keys(static_cast<std::size_t>(i) + 1);
    ASSERT_EQ(buttons.size(), i + 1U);
    ASSERT_EQ(keys.size(), i + 1U);
    for (const MediaTime time : {buttons.back().hostTime, keys.back().hostTime}) {
      EXPECT_GE(time, before);
      EXPECT_LE(time, after);
    }
    std::this_thread::sleep_for(3ms);
  }
}

TEST_F(InteractionMonitoring, TellsAPressOfWhichNoProgramIsToldWithoutDelay) {
  startDesktop();
  watch();
  const MediaTime before = clock.now();
  input->key(KEY_F5, true);
  ASSERT_EQ(presses.keys(1).size(), 1U);
  input->button(2, true);
  ASSERT_EQ(presses.buttons(1).size(), 1U);
  EXPECT_LT(clock.now() - before, MediaTime(1, 1));
}

TEST_F(InteractionMonitoring, TellsKeysByTheirPlaceWhateverTheLayout) {
  startDesktop();
  const std::vector<std::uint16_t> keys = {KEY_Q, KEY_Y, KEY_Z, KEY_SEMICOLON, KEY_1, KEY_F5, KEY_ENTER};
  watch();
  std::vector<std::uint16_t> expected;
  for (const std::vector<std::string>& layout :
       {std::vector<std::string>{"us"}, {"de"}, {"fr"}, {"us", "dvorak"}, {"us,de"}}) {
    std::vector<std::string> command = {"setxkbmap", layout.front()};
    if (layout.size() > 1)
      command.push_back(layout.back());
    desktop->run(command);
    for (const auto code : keys) {
      input->tap(code);
      expected.push_back(code);
    }
    EXPECT_EQ(codesSoFar(), expected) << layout.back();
  }
}

TEST_F(InteractionMonitoring, TellsTheModifiersHeld) {
  startDesktop();
  watch();
  struct Case {
    std::vector<std::uint16_t> held;
    KeyModifiers expected;
  };
  const std::vector<Case> cases = {
      {{}, {}},
      {{KEY_LEFTCTRL}, {.control = true}},
      {{KEY_RIGHTCTRL}, {.control = true}},
      {{KEY_LEFTALT}, {.option = true}},
      {{KEY_LEFTSHIFT}, {.shift = true}},
      {{KEY_RIGHTSHIFT}, {.shift = true}},
      {{KEY_LEFTMETA}, {.command = true}},
      {{KEY_RIGHTMETA}, {.command = true}},
      {{KEY_LEFTCTRL, KEY_LEFTALT, KEY_LEFTSHIFT, KEY_LEFTMETA}, {true, true, true, true}},
  };
  for (const std::string layout : {"us", "de", "us,de"}) {
    desktop->run({"setxkbmap", layout});
    std::this_thread::sleep_for(200ms); // the meaning of modifiers comes by another way than presses do
    for (const Case& each : cases) {
      input->chord(each.held, KEY_K);
      const auto keys = keysSoFar();
      ASSERT_FALSE(keys.empty());
      EXPECT_EQ(keys.back().evdevCode, KEY_K);
      EXPECT_EQ(keys.back().modifiers, each.expected) << layout << ", " << each.held.size() << " held";
    }
  }
}

TEST_F(InteractionMonitoring, WhatChoosesCharactersIsNoModifier) {
  startDesktop();
  watch();
  for (const std::string layout : {"de", "fr"}) {
    desktop->run({"setxkbmap", layout});
    std::this_thread::sleep_for(200ms);
    input->chord({KEY_RIGHTALT}, KEY_Q); // AltGr: @ in German
    EXPECT_EQ(keysSoFar().back().modifiers, KeyModifiers()) << layout;
    for (const auto lock : {KEY_CAPSLOCK, KEY_NUMLOCK}) {
      input->tap(static_cast<std::uint16_t>(lock));
      input->tap(KEY_Q);
      EXPECT_EQ(keysSoFar().back().modifiers, KeyModifiers()) << layout;
      input->tap(static_cast<std::uint16_t>(lock));
    }
  }
  // In two layouts the same key is Alt in one and AltGr in the other.
  desktop->run({"setxkbmap", "us,de", "-option", "grp:shifts_toggle"});
  std::this_thread::sleep_for(200ms);
  input->chord({KEY_RIGHTALT}, KEY_Q);
  EXPECT_EQ(keysSoFar().back().modifiers, (KeyModifiers{.option = true}));
  input->chord({KEY_LEFTSHIFT}, KEY_RIGHTSHIFT);
  input->chord({KEY_RIGHTALT}, KEY_Q);
  EXPECT_EQ(keysSoFar().back().modifiers, KeyModifiers());
}

TEST_F(InteractionMonitoring, TellsRepetitionsOfAHeldKey) {
  startRepeatingDesktop();
  watch();
  input->key(KEY_B, true);
  presses.keys(5);
  input->key(KEY_B, false);
  input->key(KEY_B, true); // anew
  input->key(KEY_B, false);
  const auto repetitions = repetitionsOf(KEY_B);
  ASSERT_GE(repetitions.size(), 6U);
  EXPECT_FALSE(repetitions.front());
  EXPECT_FALSE(repetitions.back());
  EXPECT_EQ(std::count(repetitions.begin(), repetitions.end(), false), 2);
}

TEST_F(InteractionMonitoring, TellsRepetitionsWhenTwoKeysAreHeld) {
  startRepeatingDesktop();
  watch();
  input->key(KEY_B, true);
  std::this_thread::sleep_for(600ms);
  input->key(KEY_C, true); // repeats from now on in place of the first
  std::this_thread::sleep_for(600ms);
  input->key(KEY_C, false);
  input->key(KEY_B, false);
  for (const auto code : {KEY_B, KEY_C}) {
    const auto repetitions = repetitionsOf(static_cast<std::uint16_t>(code));
    ASSERT_GE(repetitions.size(), 3U) << code;
    EXPECT_FALSE(repetitions.front());
    EXPECT_EQ(std::count(repetitions.begin(), repetitions.end(), false), 1) << code;
  }
}

TEST_F(InteractionMonitoring, AKeyThatWasDownInTheBeginningIsPressedOnlyWhenItIsPressedAnew) {
  startRepeatingDesktop();
  input->key(KEY_B, true);
  watch();
  EXPECT_GE(presses.keys(2).size(), 2U);
  input->key(KEY_B, false);
  input->key(KEY_B, true);
  input->key(KEY_B, false);
  const auto repetitions = repetitionsOf(KEY_B);
  ASSERT_GE(repetitions.size(), 3U);
  EXPECT_EQ(std::count(repetitions.begin(), repetitions.end(), false), 1);
  EXPECT_FALSE(repetitions.back());
}

TEST_F(InteractionMonitoring, SeesThousandsOfPressesInTheirOrder) {
  startDesktop();
  watch();
  std::vector<std::uint16_t> expected;
  for (int i = 0; i < 4000; ++i) {
    const auto code = static_cast<std::uint16_t>(KEY_Q + i % 10);
    input->tap(code);
    expected.push_back(code);
    std::this_thread::sleep_for(handsPause);
  }
  const auto seen = codesSoFar();
  EXPECT_EQ(seen.size(), expected.size());
  const auto [there, awaited] = std::mismatch(seen.begin(), seen.end(), expected.begin(), expected.end());
  EXPECT_EQ(there, seen.end()) << "differs after " << there - seen.begin();
}

TEST_F(InteractionMonitoring, WatchesOnlyWhatIsToBeHandled) {
  startDesktop();
  InteractionHandlers buttons = presses.handlers();
  buttons.onKey = nullptr;
  monitor = source->monitor(buttons);
  ASSERT_TRUE(monitor);
  EXPECT_EQ(passwords.beginnings, 0);
  input->tap(KEY_A);
  input->click();
  EXPECT_EQ(presses.buttons(1).size(), 1U);
  monitor->stop();

  InteractionHandlers keys = presses.handlers();
  keys.onButton = nullptr;
  monitor = source->monitor(keys);
  ASSERT_TRUE(monitor);
  EXPECT_EQ(passwords.beginnings, 1);
  input->click();
  input->tap(KEY_B);
  EXPECT_EQ(codesSoFar(), (std::vector<std::uint16_t>{KEY_B}));
  EXPECT_EQ(presses.buttons(1).size(), 1U);
}

TEST_F(InteractionMonitoring, SeveralMonitorsSeeTheSame) {
  startDesktop();
  watch();
  Presses others;
  const auto second = source->monitor(others.handlers());
  ASSERT_TRUE(second);
  input->click();
  EXPECT_EQ(presses.buttons(1).size(), 1U);
  EXPECT_EQ(others.buttons(1).size(), 1U);
  second->stop();
  input->click();
  EXPECT_EQ(presses.buttons(2).size(), 2U);
  EXPECT_EQ(others.buttons(0).size(), 1U);
}

TEST_F(InteractionMonitoring, IsNotToBeHadWhereTheSessionMayNotWatch) {
  startDesktop({.serverArguments = {"-extension", "RECORD"}});
  EXPECT_FALSE(source->monitor(presses.handlers()));
  EXPECT_EQ(passwords.beginnings, 0);
  EXPECT_TRUE(source->pointer()) << "the pointer is to be read nevertheless";
}

} // namespace
} // namespace tessarin
