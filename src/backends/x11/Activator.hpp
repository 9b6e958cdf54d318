#pragma once

#include "backends/x11/Connection.hpp"
#include "ports/Desktop.hpp"

#include <memory>

namespace tessarin::x11 {

// Activates by the window manager, or raises and focuses by itself where there is none. Failures to do so
// are not reported: the window's picture does not depend on it.
std::unique_ptr<ApplicationActivator> makeApplicationActivator(std::shared_ptr<DisplayServer> server);

} // namespace tessarin::x11
