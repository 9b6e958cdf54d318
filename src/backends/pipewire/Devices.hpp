#pragma once

#include "ports/Devices.hpp"

#include <memory>

namespace tessarin::pipewire {

// Sound and cameras of the PipeWire server that the session's environment names. Making it connects to
// nothing.
std::unique_ptr<CaptureDevices> makeCaptureDevices();

} // namespace tessarin::pipewire
