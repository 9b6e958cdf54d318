#pragma once

#include "backends/x11/Connection.hpp"
#include "base/HostClock.hpp"
#include "ports/InteractionEvents.hpp"
#include "ports/SecureInput.hpp"

#include <memory>

namespace tessarin::x11 {

// Pointer, clicks and keys of the display, wherever they are used. Everything referred to outlives the
// source.
std::unique_ptr<InteractionSource> makeInteractionSource(std::shared_ptr<DisplayServer> server,
                                                         const HostClock& clock, PasswordFocus& passwords);

} // namespace tessarin::x11
