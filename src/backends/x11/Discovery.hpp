#pragma once

#include "backends/x11/Connection.hpp"
#include "ports/Desktop.hpp"

#include <memory>

namespace tessarin::x11 {

// Displays, windows and elements of the X server. Access means that the display can be opened.
std::unique_ptr<DesktopContent> makeDesktopContent(std::shared_ptr<DisplayServer> server);

} // namespace tessarin::x11
