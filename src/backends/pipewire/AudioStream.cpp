#include "backends/pipewire/AudioStream.hpp"

namespace tessarin::pipewire {

std::unique_ptr<DeviceStream> makeMicrophoneStream(std::shared_ptr<Connection> /*connection*/,
                                                   const ServerNode& /*node*/,
                                                   AudioSampleHandler /*onSample*/,
                                                   DeviceEndHandler /*onEnd*/) {
  fail(CaptureDeviceError::unavailable);
}

std::unique_ptr<DeviceStream> makeSystemAudioStream(std::shared_ptr<Connection> /*connection*/,
                                                    AudioSampleHandler /*onSample*/,
                                                    DeviceEndHandler /*onEnd*/) {
  fail(CaptureDeviceError::unavailable);
}

} // namespace tessarin::pipewire
