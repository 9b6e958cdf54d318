#pragma once

#include "backends/x11/Connection.hpp"
#include "base/HostClock.hpp"
#include "ports/Capture.hpp"

#include <memory>

namespace tessarin::x11 {

// Stills of displays from the screen itself, and of windows from their own pixels, however covered they are.
// Where parts come to light that no client had painted before, it waits up to a sixth of a second for them
// by the clock, which outlives the capturer.
std::unique_ptr<StillCapturer> makeStillCapturer(std::shared_ptr<DisplayServer> server,
                                                 const HostClock& clock);

} // namespace tessarin::x11
