#include "backends/pipewire/Devices.hpp"

#include "backends/pipewire/AudioStream.hpp"
#include "backends/pipewire/CameraStream.hpp"
#include "backends/pipewire/Connection.hpp"

#include <mutex>
#include <utility>

namespace tessarin::pipewire {

namespace {

// Shares one connection among all streams, made when it is first needed and again after the server was gone.
class Devices final : public CaptureDevices {
 public:
  bool isReachable() override {
    try {
      return connection()->roundTrip();
    } catch (const Failure<CaptureDeviceError>&) {
      return false;
    }
  }

  std::vector<CaptureDevice> devices(MediaKind kind) override {
    try {
      const auto state = connection()->state();
      return state ? captureDevices(*state, kind) : std::vector<CaptureDevice>();
    } catch (const Failure<CaptureDeviceError>&) {
      return {};
    }
  }

  std::unique_ptr<DeviceStream> openMicrophone(const std::optional<std::string>& deviceID,
                                               AudioSampleHandler onSample, DeviceEndHandler onEnd) override {
    auto server = connection();
    const auto node = source(*server, MediaKind::audio, deviceID);
    return makeMicrophoneStream(std::move(server), node, std::move(onSample), std::move(onEnd));
  }

  std::unique_ptr<DeviceStream> openCamera(const std::optional<std::string>& deviceID,
                                           CameraFrameHandler onFrame, DeviceEndHandler onEnd) override {
    auto server = connection();
    const auto node = source(*server, MediaKind::video, deviceID);
    return makeCameraStream(std::move(server), node, std::move(onFrame), std::move(onEnd));
  }

  std::unique_ptr<DeviceStream> openSystemAudio(AudioSampleHandler onSample,
                                                DeviceEndHandler onEnd) override {
    auto server = connection();
    const auto state = server->state();
    if (!state || !findDefaultSink(*state)) {
      fail(CaptureDeviceError::unavailable);
    }
    return makeSystemAudioStream(std::move(server), std::move(onSample), std::move(onEnd));
  }

 private:
  std::shared_ptr<Connection> connection() {
    const std::lock_guard lock(mutex_);
    if (!connection_ || connection_->isLost()) {
      connection_.reset();
      connection_ = std::make_shared<Connection>();
    }
    return connection_;
  }

  static ServerNode source(Connection& connection, MediaKind kind,
                           const std::optional<std::string>& deviceID) {
    const auto state = connection.state();
    const auto* node = state ? findSource(*state, kind, deviceID ? &*deviceID : nullptr) : nullptr;
    if (!node) {
      fail(CaptureDeviceError::unavailable);
    }
    return *node;
  }

  std::mutex mutex_;
  std::shared_ptr<Connection> connection_; // guarded by mutex_
};

} // namespace

std::unique_ptr<CaptureDevices> makeCaptureDevices() {
  return std::make_unique<Devices>();
}

} // namespace tessarin::pipewire
