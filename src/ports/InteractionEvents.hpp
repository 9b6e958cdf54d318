#pragma once

#include "base/MediaTime.hpp"
#include "model/Interaction.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

// What the user does with pointer and keyboard, wherever on the desktop. One backend serves it
// (src/backends/x11).
namespace tessarin {

// Global coordinates: points, with the origin at the top left of the desktop.
struct PointerLocation {
  double x = 0;
  double y = 0;

  bool operator==(const PointerLocation&) const = default;
};

// One reading of the pointer. The arrays hold the buttons in the order of InteractionMouseButton; `other` is
// any button that is neither of the first two nor a step of a wheel.
struct PointerState {
  PointerLocation location;
  std::array<bool, interactionMouseButtonCount> isDown = {};
  // Presses since some moment before the first reading, so that a press shorter than the time between two
  // readings is seen too. Wraps around. A source that cannot count leaves it 0.
  std::array<std::uint32_t, interactionMouseButtonCount> pressCount = {};
};

// Modifiers held while a key goes down. What chooses between the characters of a key (AltGr, Caps Lock, Num
// Lock) is none of them.
struct KeyModifiers {
  bool control = false;
  bool option = false; // Alt
  bool shift = false;
  bool command = false; // Super

  bool operator==(const KeyModifiers&) const = default;
};

// The host time is that of the press itself; not numeric where the source cannot tell.
struct ButtonPress {
  InteractionMouseButton button = InteractionMouseButton::left;
  PointerLocation location;
  MediaTime hostTime;
};

struct KeyPress {
  std::uint16_t evdevCode = 0; // the key itself, whatever the layout writes with it
  KeyModifiers modifiers;
  bool isRepeat = false;      // the key is held, and the press is one of its repetitions
  bool isSecureInput = false; // as InteractionSource::isSecureInput() at the press
  MediaTime hostTime;
};

// Watching of button and key presses. Methods on any thread.
class InteractionMonitor {
 public:
  // As stop(), and not within a handler.
  virtual ~InteractionMonitor() = default;
  // No handler is under way or will be called once this has returned, but for the one that calls it.
  // Idempotent.
  virtual void stop() = 0;
};

// Called one at a time, on a thread of the source, while it goes; they must not block it. Of a kind that has
// no handler nothing is watched.
struct InteractionHandlers {
  std::function<void(const ButtonPress&)> onButton;
  std::function<void(const KeyPress&)> onKey;
};

// Any thread, several at once.
class InteractionSource {
 public:
  virtual ~InteractionSource() = default;

  // A fresh reading; nothing when the desktop does not answer.
  virtual std::optional<PointerState> pointer() = 0;
  // Whether what is typed now is secret: a password field has the focus, or another program has taken the
  // keyboard for itself.
  virtual bool isSecureInput() = 0;
  // Null when this session may not watch. The source outlives the monitor.
  virtual std::unique_ptr<InteractionMonitor> monitor(InteractionHandlers handlers) = 0;
};

} // namespace tessarin
