#include "trace/InteractionShortcutPrivacy.hpp"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace tessarin::InteractionShortcutPrivacy {

namespace {

struct Key {
  std::uint16_t code;
  std::uint16_t evdevCode;
  std::string_view label;
};

constexpr std::array<Key, 15> navigationKeys = {{
    {36, KEY_ENTER, "Return"},
    {48, KEY_TAB, "Tab"},
    {49, KEY_SPACE, "Space"},
    {51, KEY_BACKSPACE, "Delete"},
    {53, KEY_ESC, "Escape"},
    {76, KEY_KPENTER, "Enter"},
    {115, KEY_HOME, "Home"},
    {116, KEY_PAGEUP, "Page Up"},
    {117, KEY_DELETE, "Forward Delete"},
    {119, KEY_END, "End"},
    {121, KEY_PAGEDOWN, "Page Down"},
    {123, KEY_LEFT, "Left"},
    {124, KEY_RIGHT, "Right"},
    {125, KEY_DOWN, "Down"},
    {126, KEY_UP, "Up"},
}};

constexpr std::array<Key, 20> functionKeys = {{
    {122, KEY_F1, "F1"},   {120, KEY_F2, "F2"},   {99, KEY_F3, "F3"},    {118, KEY_F4, "F4"},
    {96, KEY_F5, "F5"},    {97, KEY_F6, "F6"},    {98, KEY_F7, "F7"},    {100, KEY_F8, "F8"},
    {101, KEY_F9, "F9"},   {109, KEY_F10, "F10"}, {103, KEY_F11, "F11"}, {111, KEY_F12, "F12"},
    {105, KEY_F13, "F13"}, {107, KEY_F14, "F14"}, {113, KEY_F15, "F15"}, {106, KEY_F16, "F16"},
    {64, KEY_F17, "F17"},  {79, KEY_F18, "F18"},  {80, KEY_F19, "F19"},  {90, KEY_F20, "F20"},
}};

constexpr std::array<Key, 47> printableKeys = {{
    {0, KEY_A, "A"},           {1, KEY_S, "S"},           {2, KEY_D, "D"},      {3, KEY_F, "F"},
    {4, KEY_H, "H"},           {5, KEY_G, "G"},           {6, KEY_Z, "Z"},      {7, KEY_X, "X"},
    {8, KEY_C, "C"},           {9, KEY_V, "V"},           {11, KEY_B, "B"},     {12, KEY_Q, "Q"},
    {13, KEY_W, "W"},          {14, KEY_E, "E"},          {15, KEY_R, "R"},     {16, KEY_Y, "Y"},
    {17, KEY_T, "T"},          {18, KEY_1, "1"},          {19, KEY_2, "2"},     {20, KEY_3, "3"},
    {21, KEY_4, "4"},          {22, KEY_6, "6"},          {23, KEY_5, "5"},     {24, KEY_EQUAL, "="},
    {25, KEY_9, "9"},          {26, KEY_7, "7"},          {27, KEY_MINUS, "-"}, {28, KEY_8, "8"},
    {29, KEY_0, "0"},          {30, KEY_RIGHTBRACE, "]"}, {31, KEY_O, "O"},     {32, KEY_U, "U"},
    {33, KEY_LEFTBRACE, "["},  {34, KEY_I, "I"},          {35, KEY_P, "P"},     {37, KEY_L, "L"},
    {38, KEY_J, "J"},          {39, KEY_APOSTROPHE, "'"}, {40, KEY_K, "K"},     {41, KEY_SEMICOLON, ";"},
    {42, KEY_BACKSLASH, "\\"}, {43, KEY_COMMA, ","},      {44, KEY_SLASH, "/"}, {45, KEY_N, "N"},
    {46, KEY_M, "M"},          {47, KEY_DOT, "."},        {50, KEY_GRAVE, "`"},
}};

constexpr std::array<std::string_view, 4> modifierNames = {"Control", "Option", "Shift", "Command"};
constexpr std::string_view shiftName = "Shift";

struct Found {
  std::uint16_t code = 0;
  std::string_view label;
  bool writesCharacters = false;
};

// The first key of the three tables that fits.
template<class Fits> std::optional<Found> find(Fits fits) {
  const auto in = [&](const auto& table, bool writesCharacters) -> std::optional<Found> {
    const auto key = std::find_if(table.begin(), table.end(), fits);
    return key == table.end() ? std::nullopt : std::optional(Found{key->code, key->label, writesCharacters});
  };
  if (const auto found = in(navigationKeys, false))
    return found;
  if (const auto found = in(functionKeys, false))
    return found;
  return in(printableKeys, true);
}

bool isModifierName(std::string_view name) {
  return std::find(modifierNames.begin(), modifierNames.end(), name) != modifierNames.end();
}

} // namespace

std::optional<std::uint16_t> keyCode(std::uint16_t evdevCode) {
  const std::optional<Found> key = find([&](const Key& each) { return each.evdevCode == evdevCode; });
  return key ? std::optional(key->code) : std::nullopt;
}

std::optional<std::vector<std::string>> keys(std::uint16_t keyCode, const KeyModifiers& modifiers,
                                             bool isRepeat, bool isSecureInput) {
  if (isSecureInput || isRepeat)
    return std::nullopt;
  const std::optional<Found> key = find([&](const Key& each) { return each.code == keyCode; });
  if (!key)
    return std::nullopt;
  if (key->writesCharacters && !modifiers.control && !modifiers.option && !modifiers.command)
    return std::nullopt;
  const std::array<bool, modifierNames.size()> held = {modifiers.control, modifiers.option, modifiers.shift,
                                                       modifiers.command};
  std::vector<std::string> names;
  for (std::size_t i = 0; i < held.size(); ++i)
    if (held[i])
      names.emplace_back(modifierNames[i]);
  names.emplace_back(key->label);
  return names;
}

bool isValid(const std::vector<std::string>& keys) {
  if (keys.empty() || keys.size() > modifierNames.size() + 1)
    return false;
  bool makesShortcut = false;
  for (auto modifier = keys.begin(); modifier != keys.end() - 1; ++modifier) {
    if (!isModifierName(*modifier) || std::find(keys.begin(), modifier, *modifier) != modifier)
      return false;
    makesShortcut = makesShortcut || *modifier != shiftName;
  }
  const std::optional<Found> key = find([&](const Key& each) { return each.label == keys.back(); });
  return key && (!key->writesCharacters || makesShortcut);
}

} // namespace tessarin::InteractionShortcutPrivacy
