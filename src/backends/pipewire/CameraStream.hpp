#pragma once

#include "backends/pipewire/Connection.hpp"
#include "ports/Devices.hpp"

#include <memory>

namespace tessarin::pipewire {

// The camera of that node, not running yet. Throws Failure<CaptureDeviceError>.
std::unique_ptr<DeviceStream> makeCameraStream(std::shared_ptr<Connection> connection, const ServerNode& node,
                                               CameraFrameHandler onFrame, DeviceEndHandler onEnd);

} // namespace tessarin::pipewire
