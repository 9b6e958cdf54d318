#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace tessarin::accessibility {

// An object of an application, such as a window or a field: the application by its unique name on the
// accessibility bus, the object by its path there.
struct AccessibleObject {
  std::string application;
  std::string path;

  bool operator==(const AccessibleObject&) const = default;
};

// What stands for an application as a whole, and in the registry for all of them.
inline constexpr const char* rootPath = "/org/a11y/atspi/accessible/root";

// The numbers of the bus's protocol for the role and the states that matter here.
inline constexpr std::uint32_t passwordTextRole = 40;
enum class AccessibleState : std::uint8_t {
  active = 1,             // of a window: it has the keyboard
  focused = 12,           // of anything within a window: keys go to it
  showing = 25,           // it and all around it are to be seen
  managesDescendants = 31 // its children are made when asked for, without end
};

// As an object tells them: one bit a state, the lowest first.
using StateBits = std::array<std::uint32_t, 2>;

inline bool has(const StateBits& bits, AccessibleState state) {
  const auto number = static_cast<unsigned>(state);
  return ((bits[number / 32] >> (number % 32)) & 1U) != 0;
}

} // namespace tessarin::accessibility
