#pragma once

#include "backends/x11/Connection.hpp"
#include "base/HostClock.hpp"
#include "ports/Capture.hpp"

#include <memory>

namespace tessarin::x11 {

// Streams that sleep until the server tells of a change. Each has a connection and a thread of its own and
// stamps its pictures by the clock, which outlives the streams.
std::unique_ptr<ScreenStreamFactory> makeScreenStreamFactory(std::shared_ptr<const DisplayServer> server,
                                                             const HostClock& clock);

} // namespace tessarin::x11
