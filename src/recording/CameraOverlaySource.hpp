#pragma once

#include "base/HostClock.hpp"
#include "base/MediaTime.hpp"
#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "recording/CaptureSource.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessarin {

using CameraTerminalState = CaptureSourceTerminalState;

// Runs the camera for a recording session and keeps its newest picture where others take it. It does not
// queue: whoever wants a picture reads the latest one. Idle, then running, then stopped or failed for good;
// after the end there is no latest picture. Its errors are cameraUnavailable and cameraDenied.
class CameraOverlaySource final : public CaptureSource {
 public:
  // Everything referred to outlives the source. The failure handler is called once, when the running camera
  // ends by itself, on a thread of the device; it must not block.
  CameraOverlaySource(CaptureDevices& devices, CaptureAuthorization& authorization,
                      std::optional<std::string> deviceID, const HostClock& clock,
                      const QueueFactory& makeQueue, Sleeper sleep, std::function<void()> failureHandler);
  // As stop().
  ~CameraOverlaySource();

  // Returns when the first picture has come, or throws cameraUnavailable after 40 rounds, 50 ms apart.
  void waitForFirstFrame() { waitForFirstDelivery(); }

  // All any thread.
  // The newest picture, however old; nothing before the first and after the end.
  std::optional<Picture> latestFrame() const;
  // Host time at which the newest picture came; stays after the end.
  std::optional<MediaTime> latestFrameReceivedAt() const;
  // Pixels, each rounded down to an even number; nothing without a picture of at least 2 by 2.
  std::optional<SizeDTO> currentFrameSize() const;

 private:
  struct Newest;
  std::unique_ptr<DeviceStream> open(DeviceEndHandler onEnd) override;

  CaptureDevices& devices_;
  const std::optional<std::string> deviceID_; // absent: the default one
  const HostClock& clock_;
  const std::shared_ptr<Newest> newest_;
};

} // namespace tessarin
