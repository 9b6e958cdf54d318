#pragma once

#include "backends/x11/Connection.hpp"
#include "base/EventQueue.hpp"
#include "ports/Panels.hpp"

#include <memory>

namespace tessarin::x11 {

// Panels on the display. Their connection is opened with the first one, and served on the main queue, which
// outlives them.
std::unique_ptr<PanelFactory> makePanelFactory(std::shared_ptr<DisplayServer> server, EventQueue& mainQueue);

} // namespace tessarin::x11
