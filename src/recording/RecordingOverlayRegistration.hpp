#pragma once

#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Desktop.hpp"
#include "ports/Panels.hpp"

#include <cstdint>
#include <memory>

namespace tessarin {

// Panels of a recording as the desktop sees them, and so as its stream can leave them out. Both throw
// contentUnavailable.
namespace RecordingOverlayRegistration {

// A panel that is shown. On the main queue.
std::unique_ptr<Panel> makePanel(PanelFactory& panels, PanelSetup setup);

// The application that owns the window. A new window may take a moment to be known, so it is looked for up
// to eight times, 50 ms apart. Not on the main queue, which it would hold up.
RunningApplication application(std::uint32_t windowNumber, DesktopContent& desktop, const Sleeper& sleep);

} // namespace RecordingOverlayRegistration

} // namespace tessarin
