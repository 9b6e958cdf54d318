#pragma once

#include "base/MediaTime.hpp"
#include "ports/InteractionEvents.hpp"

#include <array>
#include <bitset>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

// What the server's buttons, keys, modifiers, times and grabs mean, as far as that can be said without asking
// it. Pure; each value and object is confined to its owner's thread.
namespace tessarin::x11 {

// The button by its logical number, that is, after the person's own mapping. The steps of wheels are none.
std::optional<InteractionMouseButton> mouseButton(std::uint32_t logicalNumber);

// The key itself, by the server's number for it. The servers of today number their keys like the kernel, but
// for 8 more.
std::optional<std::uint16_t> evdevCode(std::uint8_t keycode);

// Which keys are down; nothing else of what was typed is known here.
class HeldKeys {
 public:
  using Keymap = std::array<std::uint8_t, 32>; // a bit for each keycode, as the server tells them

  void replace(const Keymap& keymap);
  // Whether the key was down already, so that the press is one of its repetitions.
  bool press(std::uint8_t keycode);
  void release(std::uint8_t keycode) { down_.reset(keycode); }

 private:
  std::bitset<256> down_;
};

// Which of the modifiers Mod1 to Mod5 are Alt and Super; 0: none is. Control and Shift are always the same.
struct ModifierMasks {
  std::uint16_t option = 0;
  std::uint16_t command = 0;

  bool operator==(const ModifierMasks&) const = default;
};

// By the keys that set each of the eight modifiers, as many for each, and the symbols of a key in all
// layouts. Alt is Mod1 and Super Mod4 where a key says so. Else it is the first other one that has such a key
// and none for choosing between characters, so that AltGr is never taken for Alt.
ModifierMasks
modifierMasks(std::span<const std::uint8_t> keycodes,
              const std::function<std::span<const std::uint32_t>(std::uint8_t keycode)>& symbols);

KeyModifiers keyModifiers(std::uint16_t state, const ModifierMasks& masks);

// Host times from the server's, which count milliseconds and wrap around after 49 days. A server on this
// machine counts on the host clock. Another one's times are counted from the moment at which it told the
// first of them, and are later than the truth by the time that this took to arrive.
class ServerTimes {
 public:
  ServerTimes(std::uint32_t serverTime, MediaTime now);
  // Not numeric for a time that is not shortly before now.
  MediaTime hostTime(std::uint32_t serverTime, MediaTime now) const;

 private:
  std::uint32_t offset_ = 0; // host less server, in milliseconds
};

// Who has taken the keyboard for himself, told in the order in which it happens on the server. Clients that
// take it are told of. A keyboard that is taken though no client asked for it is so by a grab that a key's
// press has started for as long as it is held, as window managers use for their shortcuts: nobody can ask for
// a password by such a one. What was there in the beginning could be either and counts as taken by another.
class KeyboardGrabs {
 public:
  // A client was granted the keyboard, or some device that may be it.
  void granted(bool isOurs, bool isKeyboard);
  // Whether anybody has the keyboard, on asking.
  void told(bool isTaken);

  bool isKnown() const { return holder_ != Holder::unknown; }
  bool isTaken() const { return holder_ == Holder::unknown || holder_ == Holder::another; }
  bool isOurs() const { return holder_ == Holder::us; }

 private:
  enum class Holder : std::uint8_t { unknown, nobody, us, another };
  Holder holder_ = Holder::unknown;
};

} // namespace tessarin::x11
