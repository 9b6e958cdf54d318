#include "backends/x11/InputRules.hpp"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace tessarin::x11 {
namespace {

using Symbols = std::vector<std::uint32_t>;

constexpr std::uint32_t shiftL = 0xffe1;
constexpr std::uint32_t controlL = 0xffe3;
constexpr std::uint32_t capsLock = 0xffe5;
constexpr std::uint32_t metaL = 0xffe7;
constexpr std::uint32_t altL = 0xffe9;
constexpr std::uint32_t altR = 0xffea;
constexpr std::uint32_t superL = 0xffeb;
constexpr std::uint32_t superR = 0xffec;
constexpr std::uint32_t numLock = 0xff7f;
constexpr std::uint32_t modeSwitch = 0xff7e;
constexpr std::uint32_t level3 = 0xfe03;
constexpr std::uint32_t level5 = 0xfe11;

// The masks for keyboards given by the symbols of the one or two keys that set each of the eight modifiers.
ModifierMasks masksOf(const std::vector<std::pair<Symbols, Symbols>>& keyboard) {
  std::vector<std::uint8_t> keycodes;
  std::map<std::uint8_t, Symbols> symbols;
  std::uint8_t next = 8;
  for (const auto& [first, second] : keyboard)
    for (const Symbols& each : {first, second}) {
      keycodes.push_back(each.empty() ? 0 : next);
      symbols[next++] = each;
    }
  return modifierMasks(keycodes, [&](std::uint8_t keycode) {
    EXPECT_NE(keycode, 0);
    return std::span<const std::uint32_t>(symbols[keycode]);
  });
}

TEST(InputButtons, AreByTheirLogicalNumberAndWheelsAreNone) {
  EXPECT_EQ(mouseButton(1), InteractionMouseButton::left);
  EXPECT_EQ(mouseButton(2), InteractionMouseButton::other);
  EXPECT_EQ(mouseButton(3), InteractionMouseButton::right);
  for (std::uint32_t wheel = 4; wheel <= 7; ++wheel)
    EXPECT_EQ(mouseButton(wheel), std::nullopt) << wheel;
  EXPECT_EQ(mouseButton(8), InteractionMouseButton::other);
  EXPECT_EQ(mouseButton(9), InteractionMouseButton::other);
  EXPECT_EQ(mouseButton(255), InteractionMouseButton::other);
  EXPECT_EQ(mouseButton(0), std::nullopt);
}

TEST(InputKeys, AreNumberedEightAboveTheKernels) {
  EXPECT_EQ(evdevCode(38), 30); // A
  EXPECT_EQ(evdevCode(8), 0);
  EXPECT_EQ(evdevCode(7), std::nullopt);
  EXPECT_EQ(evdevCode(0), std::nullopt);
  EXPECT_EQ(evdevCode(255), 247);
}

TEST(InputKeys, APressOfAKeyThatIsDownIsARepetition) {
  HeldKeys keys;
  EXPECT_FALSE(keys.press(38));
  EXPECT_TRUE(keys.press(38));
  EXPECT_FALSE(keys.press(39)) << "another one, while the first is held";
  EXPECT_TRUE(keys.press(39));
  keys.release(38);
  EXPECT_TRUE(keys.press(39)) << "still held";
  EXPECT_FALSE(keys.press(38)) << "pressed anew";
  keys.release(40); // was not down
  EXPECT_FALSE(keys.press(40));
  EXPECT_FALSE(keys.press(255));
  EXPECT_TRUE(keys.press(255));
}

TEST(InputKeys, WhatTheServerTellsReplacesWhatWasThought) {
  HeldKeys keys;
  keys.press(38);
  HeldKeys::Keymap keymap = {};
  keymap[40 / 8] = 1U << (40 % 8);
  keymap[31] = 0x80;
  keys.replace(keymap);
  EXPECT_TRUE(keys.press(40));
  EXPECT_TRUE(keys.press(255));
  EXPECT_FALSE(keys.press(38));
  EXPECT_FALSE(keys.press(41));
}

TEST(InputModifiers, AltAndSuperAreFoundByTheirKeys) {
  // As most layouts have it: behind the characters of group 1 some keys have none.
  EXPECT_EQ(masksOf({{{shiftL}, {}},
                     {{capsLock}, {}},
                     {{controlL}, {}},
                     {{altL, metaL}, {0, metaL}},
                     {{numLock}, {}},
                     {{level5}, {}},
                     {{superL}, {0, superR}},
                     {{level3}, {modeSwitch}}}),
            (ModifierMasks{8, 64}));
  // Elsewhere: Super as Mod2, Alt as Mod3.
  EXPECT_EQ(masksOf({{}, {}, {}, {{metaL}, {}}, {{superR}, {}}, {{altR}, {}}, {{numLock}, {}}, {}}),
            (ModifierMasks{32, 16}));
  EXPECT_EQ(masksOf({{}, {}, {}, {}, {}, {}, {}, {}}), (ModifierMasks{0, 0}));
  EXPECT_EQ(modifierMasks({}, [](std::uint8_t) { return std::span<const std::uint32_t>(); }),
            (ModifierMasks{0, 0}));
}

TEST(InputModifiers, AltGrIsNeverTakenForAlt) {
  // Two layouts, the right Alt being AltGr in the second, and the server files it under both.
  EXPECT_EQ(masksOf({{}, {}, {}, {{altL}, {altR, level3}}, {}, {}, {}, {{level3}, {altR, level3}}}),
            (ModifierMasks{8, 0}));
  // The only Alt there is also chooses characters.
  EXPECT_EQ(masksOf({{}, {}, {}, {}, {}, {}, {}, {{level3}, {altR, level3}}}), (ModifierMasks{0, 0}));
  EXPECT_EQ(masksOf({{}, {}, {}, {}, {{superL, numLock}, {}}, {{altL, modeSwitch}, {}}, {}, {}}),
            (ModifierMasks{0, 0}));
  // Shift, Lock and Control are what they are.
  EXPECT_EQ(masksOf({{{altL}, {}}, {{superL}, {}}, {{altL}, {superL}}, {}, {}, {}, {}, {}}),
            (ModifierMasks{0, 0}));
}

TEST(InputModifiers, AreThoseHeldAndNoLocks) {
  const ModifierMasks masks = {8, 64};
  EXPECT_EQ(keyModifiers(0, masks), KeyModifiers());
  EXPECT_EQ(keyModifiers(0x4D, masks), (KeyModifiers{true, true, true, true}));
  EXPECT_EQ(keyModifiers(0x04, masks), (KeyModifiers{.control = true}));
  EXPECT_EQ(keyModifiers(0x08, masks), (KeyModifiers{.option = true}));
  EXPECT_EQ(keyModifiers(0x01, masks), (KeyModifiers{.shift = true}));
  EXPECT_EQ(keyModifiers(0x40, masks), (KeyModifiers{.command = true}));
  // Lock, Mod2, Mod3, Mod5, buttons, the group.
  EXPECT_EQ(keyModifiers(0xFFB2, masks), KeyModifiers());
  EXPECT_EQ(keyModifiers(0xFF, {}), (KeyModifiers{.control = true, .shift = true}));
}

MediaTime host(std::int64_t milliseconds) {
  return MediaTime::milliseconds(milliseconds);
}

TEST(InputTimes, AreTheServersWhereItCountsOnTheHostClock) {
  const ServerTimes times(999'990, host(1'000'000));
  EXPECT_EQ(times.hostTime(1'000'100, host(1'000'105)), host(1'000'100));
  EXPECT_EQ(times.hostTime(1'000'100, MediaTime::nanoseconds(1'000'100'000'001)), host(1'000'100));
  EXPECT_EQ(times.hostTime(1'001'000, host(1'000'000)), host(1'001'000)) << "slightly ahead";
}

TEST(InputTimes, GoOnWhenTheServersWrapAround) {
  constexpr std::int64_t wrap = std::int64_t(1) << 32;
  const ServerTimes times(0xFFFFFFFF - 10, host(wrap - 5));
  EXPECT_EQ(times.hostTime(0xFFFFFFFF, host(wrap + 3)), host(wrap - 1));
  EXPECT_EQ(times.hostTime(2, host(wrap + 3)), host(wrap + 2));
  const ServerTimes later(5, host(3 * wrap + 6));
  EXPECT_EQ(later.hostTime(100, host(3 * wrap + 101)), host(3 * wrap + 100));
}

TEST(InputTimes, AreCountedFromTheFirstWhereTheServerHasAClockOfItsOwn) {
  EXPECT_EQ(ServerTimes(5'000, host(10'000)).hostTime(5'000, host(10'000)), host(5'000)) << "near enough";
  const ServerTimes slow(4'999, host(10'000));
  EXPECT_EQ(slow.hostTime(4'999, host(10'000)), host(10'000));
  EXPECT_EQ(slow.hostTime(5'099, host(10'250)), host(10'100));
  const ServerTimes ahead(3'000'000'000, host(10'000));
  EXPECT_EQ(ahead.hostTime(3'000'000'700, host(11'000)), host(10'700));
}

TEST(InputTimes, AreNotKnownFarFromNow) {
  const ServerTimes times(1'000'000, host(1'000'000));
  EXPECT_EQ(times.hostTime(1'000'000, host(1'600'000)), host(1'000'000));
  EXPECT_FALSE(times.hostTime(1'000'000, host(1'600'001)).isNumeric());
  EXPECT_FALSE(times.hostTime(1'001'001, host(1'000'000)).isNumeric());
}

TEST(InputGrabs, AreSecretUntilItIsKnownThatThereAreNone) {
  KeyboardGrabs grabs;
  EXPECT_FALSE(grabs.isKnown());
  EXPECT_TRUE(grabs.isTaken());
  grabs.told(false);
  EXPECT_TRUE(grabs.isKnown());
  EXPECT_FALSE(grabs.isTaken());
}

TEST(InputGrabs, OneThatWasThereInTheBeginningIsAnothersUntilItEnds) {
  KeyboardGrabs grabs;
  grabs.told(true);
  EXPECT_TRUE(grabs.isKnown());
  EXPECT_TRUE(grabs.isTaken());
  grabs.told(true);
  EXPECT_TRUE(grabs.isTaken());
  grabs.told(false);
  EXPECT_FALSE(grabs.isTaken());
}

TEST(InputGrabs, OneThatNoClientAskedForBelongsToAKey) {
  KeyboardGrabs grabs;
  grabs.told(false);
  grabs.told(true);
  EXPECT_FALSE(grabs.isTaken());
  grabs.granted(false, true); // its owner holds on to the keyboard
  EXPECT_TRUE(grabs.isTaken());
  grabs.told(true);
  EXPECT_TRUE(grabs.isTaken());
  grabs.told(false);
  EXPECT_FALSE(grabs.isTaken());
}

TEST(InputGrabs, OfAnotherDeviceLastUntilTheAnswerThatTheKeyboardIsFree) {
  KeyboardGrabs grabs;
  grabs.told(false);
  grabs.granted(false, false);
  EXPECT_TRUE(grabs.isTaken()) << "it may be the keyboard";
  grabs.told(false);
  EXPECT_FALSE(grabs.isTaken());
}

TEST(InputGrabs, OurOwnHideNothingAndNobodyElses) {
  KeyboardGrabs grabs;
  grabs.told(false);
  grabs.granted(true, true);
  EXPECT_TRUE(grabs.isOurs());
  EXPECT_FALSE(grabs.isTaken());
  grabs.told(true);
  EXPECT_TRUE(grabs.isOurs());
  grabs.told(false);
  EXPECT_FALSE(grabs.isOurs());

  grabs.granted(false, true);
  grabs.granted(true, false); // our pointer
  EXPECT_TRUE(grabs.isTaken());
  EXPECT_FALSE(grabs.isOurs());
  grabs.told(true);
  EXPECT_TRUE(grabs.isTaken());
  grabs.granted(true, true);
  EXPECT_TRUE(grabs.isOurs()) << "the other one has let go of it";
  grabs.granted(false, false);
  EXPECT_TRUE(grabs.isTaken()) << "in doubt";

  KeyboardGrabs unknown;
  unknown.granted(true, false);
  EXPECT_TRUE(unknown.isTaken());
}

} // namespace
} // namespace tessarin::x11
