#pragma once

#include "backends/x11/Connection.hpp"
#include "ports/Permissions.hpp"

#include <memory>
#include <string_view>

namespace tessarin::x11 {

// Whether this session may watch keyboard and pointer wherever they are used: the server has the extensions
// RECORD and XInput (2.1 or later), takes raw keys to be watched, and is no server for X clients inside a
// Wayland session, which is told of no more input than its own windows get. X has nobody to ask, so a request
// finds what the preflight finds. A server out of reach grants nothing. One call at a time.
std::unique_ptr<ListenEventAccess> makeListenEventAccess(std::shared_ptr<DisplayServer> server);

// The same, asked on a connection of the caller's. Throws DesktopFailure when the server is lost.
bool letsInputBeWatched(Connection& connection);

// Whether an input device's name is one that such a server gives its devices.
bool isNestedInputDevice(std::string_view name);

} // namespace tessarin::x11
