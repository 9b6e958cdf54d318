#include "backends/pipewire/CameraStream.hpp"

namespace tessarin::pipewire {

std::unique_ptr<DeviceStream> makeCameraStream(std::shared_ptr<Connection> /*connection*/,
                                               const ServerNode& /*node*/, CameraFrameHandler /*onFrame*/,
                                               DeviceEndHandler /*onEnd*/) {
  fail(CaptureDeviceError::unavailable);
}

} // namespace tessarin::pipewire
