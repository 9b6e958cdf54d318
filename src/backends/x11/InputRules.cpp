#include "backends/x11/InputRules.hpp"

#include <xcb/xproto.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>

namespace tessarin::x11 {

namespace {

// How the kernel's numbers of keys become the server's.
constexpr std::uint8_t firstKeycode = 8;

constexpr std::size_t modifierCount = 8;
constexpr std::size_t firstNumbered = 3; // Mod1, behind Shift, Lock and Control
constexpr std::size_t mod1 = 3;
constexpr std::size_t mod4 = 6;

constexpr std::initializer_list<std::uint32_t> altSymbols = {0xffe9, 0xffea};   // Alt_L, Alt_R
constexpr std::initializer_list<std::uint32_t> superSymbols = {0xffeb, 0xffec}; // Super_L, Super_R
// Mode_switch, Num_Lock, and ISO_Level2_Latch to ISO_Level5_Lock.
bool choosesCharacters(std::uint32_t symbol) {
  return symbol == 0xff7e || symbol == 0xff7f || (symbol >= 0xfe02 && symbol <= 0xfe05) ||
         (symbol >= 0xfe11 && symbol <= 0xfe13);
}

// A server that counts on the host clock tells a time that is at most so far away, in milliseconds.
constexpr std::int32_t sameClock = 5000;
// Presses further away than this from the moment at which they are told of have no time that can be trusted.
constexpr std::int32_t oldest = 600'000;
constexpr std::int32_t newest = -1000;

std::int64_t wholeMilliseconds(MediaTime time) {
  return time.convertedTo(MediaTime::nanosecondScale).value() / 1'000'000;
}

std::int32_t difference(std::uint32_t later, std::uint32_t earlier) {
  return static_cast<std::int32_t>(later - earlier); // over the wrapping
}

} // namespace

std::optional<InteractionMouseButton> mouseButton(std::uint32_t logicalNumber) {
  switch (logicalNumber) {
  case 1:
    return InteractionMouseButton::left;
  case 3:
    return InteractionMouseButton::right;
  case 0: // switched off by the mapping
  case 4:
  case 5:
  case 6:
  case 7:
    return std::nullopt;
  default:
    return InteractionMouseButton::other;
  }
}

std::optional<std::uint16_t> evdevCode(std::uint8_t keycode) {
  if (keycode < firstKeycode)
    return std::nullopt;
  return static_cast<std::uint16_t>(keycode - firstKeycode);
}

void HeldKeys::replace(const Keymap& keymap) {
  for (std::size_t keycode = 0; keycode < down_.size(); ++keycode)
    down_.set(keycode, ((keymap.at(keycode / 8) >> (keycode % 8)) & 1U) != 0);
}

bool HeldKeys::press(std::uint8_t keycode) {
  const bool wasDown = down_.test(keycode);
  down_.set(keycode);
  return wasDown;
}

ModifierMasks
modifierMasks(std::span<const std::uint8_t> keycodes,
              const std::function<std::span<const std::uint32_t>(std::uint8_t keycode)>& symbols) {
  const std::size_t keysEach = keycodes.size() / modifierCount;
  const auto has = [&](std::size_t modifier, const auto& fits) {
    const auto keys = keycodes.subspan(modifier * keysEach, keysEach);
    return std::any_of(keys.begin(), keys.end(), [&](std::uint8_t keycode) {
      const auto all = keycode != 0 ? symbols(keycode) : std::span<const std::uint32_t>();
      return std::any_of(all.begin(), all.end(), fits);
    });
  };
  const auto find = [&](std::initializer_list<std::uint32_t> wanted, std::size_t usual) -> std::uint16_t {
    const auto isWanted = [&](std::uint32_t symbol) {
      return std::find(wanted.begin(), wanted.end(), symbol) != wanted.end();
    };
    if (has(usual, isWanted))
      return static_cast<std::uint16_t>(1U << usual);
    for (std::size_t modifier = firstNumbered; modifier < modifierCount; ++modifier)
      if (has(modifier, isWanted) && !has(modifier, choosesCharacters))
        return static_cast<std::uint16_t>(1U << modifier);
    return 0;
  };
  return {find(altSymbols, mod1), find(superSymbols, mod4)};
}

KeyModifiers keyModifiers(std::uint16_t state, const ModifierMasks& masks) {
  return {.control = (state & XCB_MOD_MASK_CONTROL) != 0,
          .option = (state & masks.option) != 0,
          .shift = (state & XCB_MOD_MASK_SHIFT) != 0,
          .command = (state & masks.command) != 0};
}

ServerTimes::ServerTimes(std::uint32_t serverTime, MediaTime now) {
  const std::int32_t away = difference(static_cast<std::uint32_t>(wholeMilliseconds(now)), serverTime);
  if (away < -sameClock || away > sameClock)
    offset_ = static_cast<std::uint32_t>(away);
}

MediaTime ServerTimes::hostTime(std::uint32_t serverTime, MediaTime now) const {
  const std::int64_t nowMs = wholeMilliseconds(now);
  const std::int32_t age = difference(static_cast<std::uint32_t>(nowMs), serverTime + offset_);
  return age < newest || age > oldest ? MediaTime() : MediaTime::milliseconds(nowMs - age);
}

void KeyboardGrabs::granted(bool isOurs, bool isKeyboard) {
  // Where another one has the keyboard, we cannot have been granted it: it was another device.
  const bool isOtherDevice = isOurs && !isKeyboard && isTaken();
  if (!isOtherDevice)
    holder_ = isOurs ? Holder::us : Holder::another;
}

void KeyboardGrabs::told(bool isTaken) {
  if (!isTaken)
    holder_ = Holder::nobody;
  else if (holder_ == Holder::unknown)
    holder_ = Holder::another;
}

} // namespace tessarin::x11
