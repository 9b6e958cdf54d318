#pragma once

#include "ports/InteractionEvents.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// What of the keyboard may be recorded: shortcuts, and never typed text. Pure, any thread.
namespace InteractionShortcutPrivacy {

// The system's own code of a key, by which its tables name keys; nothing for a key that they do not know.
// Keys are told by their place on the keyboard, so that labels do not depend on the layout in force.
std::optional<std::uint16_t> keyCode(std::uint16_t evdevCode);

// The modifiers held, as "Control", "Option", "Shift", "Command", and then the key's label. Nothing for what
// must not be recorded: repetitions, anything while input is secure, keys without a label, and keys that
// write characters unless Control, Option or Command is held.
std::optional<std::vector<std::string>> keys(std::uint16_t keyCode, const KeyModifiers& modifiers,
                                             bool isRepeat, bool isSecureInput);

// Whether these could have come from keys(), but for the order of the modifiers.
bool isValid(const std::vector<std::string>& keys);

} // namespace InteractionShortcutPrivacy

} // namespace tessarin
