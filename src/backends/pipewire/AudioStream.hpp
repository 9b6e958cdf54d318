#pragma once

#include "backends/pipewire/Connection.hpp"
#include "ports/Devices.hpp"

#include <memory>

namespace tessarin::pipewire {

// The microphone of that node, not running yet.
std::unique_ptr<DeviceStream> makeMicrophoneStream(std::shared_ptr<Connection> connection,
                                                   const ServerNode& node, AudioSampleHandler onSample,
                                                   DeviceEndHandler onEnd);

// What the default sink plays, whichever that is at a time; not running yet.
std::unique_ptr<DeviceStream> makeSystemAudioStream(std::shared_ptr<Connection> connection,
                                                    AudioSampleHandler onSample, DeviceEndHandler onEnd);

} // namespace tessarin::pipewire
