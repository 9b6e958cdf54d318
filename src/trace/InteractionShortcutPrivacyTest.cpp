#include "trace/InteractionShortcutPrivacy.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <set>

namespace tessarin {
namespace {

using Keys = std::vector<std::string>;
namespace privacy = InteractionShortcutPrivacy;

constexpr KeyModifiers none = {};
constexpr KeyModifiers control = {.control = true};
constexpr KeyModifiers option = {.option = true};
constexpr KeyModifiers shift = {.shift = true};
constexpr KeyModifiers command = {.command = true};
constexpr KeyModifiers all = {true, true, true, true};

struct Row {
  std::uint16_t code;
  std::uint16_t evdevCode;
  const char* label;
};

const std::vector<Row> navigation = {
    {36, 28, "Return"},  {48, 15, "Tab"},         {49, 57, "Space"},
    {51, 14, "Delete"},  {53, 1, "Escape"},       {76, 96, "Enter"},
    {115, 102, "Home"},  {116, 104, "Page Up"},   {117, 111, "Forward Delete"},
    {119, 107, "End"},   {121, 109, "Page Down"}, {123, 105, "Left"},
    {124, 106, "Right"}, {125, 108, "Down"},      {126, 103, "Up"}};

const std::vector<Row> functions = {
    {122, 59, "F1"},   {120, 60, "F2"},  {99, 61, "F3"},    {118, 62, "F4"},   {96, 63, "F5"},
    {97, 64, "F6"},    {98, 65, "F7"},   {100, 66, "F8"},   {101, 67, "F9"},   {109, 68, "F10"},
    {103, 87, "F11"},  {111, 88, "F12"}, {105, 183, "F13"}, {107, 184, "F14"}, {113, 185, "F15"},
    {106, 186, "F16"}, {64, 187, "F17"}, {79, 188, "F18"},  {80, 189, "F19"},  {90, 190, "F20"}};

const std::vector<Row> printable = {
    {0, 30, "A"},  {1, 31, "S"},  {2, 32, "D"},  {3, 33, "F"},  {4, 35, "H"},  {5, 34, "G"},   {6, 44, "Z"},
    {7, 45, "X"},  {8, 46, "C"},  {9, 47, "V"},  {11, 48, "B"}, {12, 16, "Q"}, {13, 17, "W"},  {14, 18, "E"},
    {15, 19, "R"}, {16, 21, "Y"}, {17, 20, "T"}, {18, 2, "1"},  {19, 3, "2"},  {20, 4, "3"},   {21, 5, "4"},
    {22, 7, "6"},  {23, 6, "5"},  {24, 13, "="}, {25, 10, "9"}, {26, 8, "7"},  {27, 12, "-"},  {28, 9, "8"},
    {29, 11, "0"}, {30, 27, "]"}, {31, 24, "O"}, {32, 22, "U"}, {33, 26, "["}, {34, 23, "I"},  {35, 25, "P"},
    {37, 38, "L"}, {38, 36, "J"}, {39, 40, "'"}, {40, 37, "K"}, {41, 39, ";"}, {42, 43, "\\"}, {43, 51, ","},
    {44, 53, "/"}, {45, 49, "N"}, {46, 50, "M"}, {47, 52, "."}, {50, 41, "`"}};

std::optional<Keys> pressed(std::uint16_t evdevCode, const KeyModifiers& modifiers) {
  const std::optional<std::uint16_t> code = privacy::keyCode(evdevCode);
  return code ? privacy::keys(*code, modifiers, false, false) : std::nullopt;
}

TEST(InteractionShortcutPrivacy, KnowsEveryKeyByItsPlaceAndLabel) {
  ASSERT_EQ(navigation.size(), 15U);
  ASSERT_EQ(functions.size(), 20U);
  ASSERT_EQ(printable.size(), 47U);
  for (const auto* table : {&navigation, &functions, &printable}) {
    for (const Row& row : *table) {
      EXPECT_EQ(privacy::keyCode(row.evdevCode), row.code) << row.label;
      EXPECT_EQ(privacy::keys(row.code, command, false, false), (Keys{"Command", row.label})) << row.label;
    }
  }
}

TEST(InteractionShortcutPrivacy, KnowsNoOtherKeys) {
  std::set<std::uint16_t> codes;
  std::set<std::uint16_t> evdevCodes;
  for (const auto* table : {&navigation, &functions, &printable}) {
    for (const Row& row : *table) {
      codes.insert(row.code);
      evdevCodes.insert(row.evdevCode);
    }
  }
  EXPECT_EQ(codes.size(), 82U);
  EXPECT_EQ(evdevCodes.size(), 82U);
  for (std::uint16_t code = 0; code < 1024; ++code) {
    EXPECT_EQ(privacy::keyCode(code).has_value(), evdevCodes.count(code) == 1) << code;
    EXPECT_EQ(privacy::keys(code, all, false, false).has_value(), codes.count(code) == 1) << code;
  }
  for (const std::uint16_t code : {KEY_LEFTSHIFT, KEY_RIGHTCTRL, KEY_RIGHTALT, KEY_LEFTMETA, KEY_CAPSLOCK,
                                   KEY_KP0, KEY_KP9, KEY_KPDOT, KEY_KPPLUS, KEY_102ND, KEY_VOLUMEUP})
    EXPECT_EQ(privacy::keyCode(code), std::nullopt) << code;
  EXPECT_EQ(privacy::keyCode(0xffff), std::nullopt);
  EXPECT_EQ(privacy::keys(0xffff, all, false, false), std::nullopt);
}

TEST(InteractionShortcutPrivacy, RecordsKeysThatWriteCharactersOnlyAsShortcuts) {
  for (const Row& row : printable) {
    EXPECT_EQ(pressed(row.evdevCode, none), std::nullopt) << row.label;
    EXPECT_EQ(pressed(row.evdevCode, shift), std::nullopt) << row.label;
    EXPECT_EQ(pressed(row.evdevCode, control), (Keys{"Control", row.label}));
    EXPECT_EQ(pressed(row.evdevCode, option), (Keys{"Option", row.label}));
    EXPECT_EQ(pressed(row.evdevCode, command), (Keys{"Command", row.label}));
    EXPECT_EQ(pressed(row.evdevCode, {.shift = true, .command = true}),
              (Keys{"Shift", "Command", row.label}));
  }
}

TEST(InteractionShortcutPrivacy, RecordsNavigationAndFunctionKeysAlone) {
  for (const auto* table : {&navigation, &functions}) {
    for (const Row& row : *table) {
      EXPECT_EQ(pressed(row.evdevCode, none), Keys{row.label});
      EXPECT_EQ(pressed(row.evdevCode, shift), (Keys{"Shift", row.label}));
    }
  }
}

TEST(InteractionShortcutPrivacy, NamesModifiersInTheirOrder) {
  EXPECT_EQ(pressed(KEY_K, all), (Keys{"Control", "Option", "Shift", "Command", "K"}));
  EXPECT_EQ(pressed(KEY_K, {.option = true, .command = true}), (Keys{"Option", "Command", "K"}));
  EXPECT_EQ(pressed(KEY_C, command), (Keys{"Command", "C"}));
  EXPECT_EQ(pressed(KEY_A, shift), std::nullopt);
  EXPECT_EQ(pressed(KEY_TAB, shift), (Keys{"Shift", "Tab"}));
  EXPECT_EQ(pressed(KEY_F5, none), Keys{"F5"});
}

TEST(InteractionShortcutPrivacy, RecordsNeitherRepetitionsNorSecrets) {
  for (const auto* table : {&navigation, &functions, &printable}) {
    for (const Row& row : *table) {
      for (const KeyModifiers& modifiers : {none, shift, control, option, command, all}) {
        EXPECT_EQ(privacy::keys(row.code, modifiers, true, false), std::nullopt);
        EXPECT_EQ(privacy::keys(row.code, modifiers, false, true), std::nullopt);
        EXPECT_EQ(privacy::keys(row.code, modifiers, true, true), std::nullopt);
      }
    }
  }
}

TEST(InteractionShortcutPrivacy, FindsWhatItYieldsValid) {
  for (const auto* table : {&navigation, &functions, &printable}) {
    for (const Row& row : *table) {
      for (unsigned held = 0; held < 16; ++held) {
        const KeyModifiers modifiers = {(held & 1U) != 0, (held & 2U) != 0, (held & 4U) != 0,
                                        (held & 8U) != 0};
        const auto keys = privacy::keys(row.code, modifiers, false, false);
        EXPECT_TRUE(!keys || privacy::isValid(*keys)) << row.label << held;
      }
    }
  }
}

TEST(InteractionShortcutPrivacy, TellsValidKeysFromOthers) {
  for (const Keys& keys :
       {Keys{"Control", "Option", "Shift", "Command", "K"}, Keys{"Command", "Control", "K"}, Keys{"F20"},
        Keys{"Space"}, Keys{"Shift", "Page Up"}, Keys{"Option", "\\"}, Keys{"Shift", "Control", "`"}})
    EXPECT_TRUE(privacy::isValid(keys)) << testing::PrintToString(keys);
  for (const Keys& keys :
       {Keys{}, Keys{"A"}, Keys{"Shift", "A"}, Keys{"Shift"}, Keys{"Command"}, Keys{"Command", "Shift"},
        Keys{"Command", "Command", "C"}, Keys{"Control", "Option", "Shift", "Command", "Command", "K"},
        Keys{"Control", "Option", "Shift", "Shift", "K"}, Keys{"F5", "C"}, Keys{"C", "Command"},
        Keys{"Command", "c"}, Keys{"Alt", "C"}, Keys{"command", "C"}, Keys{"Command", ""},
        Keys{"Command", "CC"}, Keys{"F21"}, Keys{"Command", "C", "V"}, Keys{"hunter2"}})
    EXPECT_FALSE(privacy::isValid(keys)) << testing::PrintToString(keys);
}

} // namespace
} // namespace tessarin
