#pragma once

#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "model/Geometry.hpp"
#include "ports/Devices.hpp"
#include "ports/Permissions.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessarin {

struct CameraTerminalState {
  bool stopped = false;
  bool failedUnexpectedly = false;
};

// Runs the camera for a recording session and keeps its newest picture where others take it. It does not
// queue: whoever wants a picture reads the latest one. Idle, then running, then stopped or failed for good;
// after the end there is no latest picture.
class CameraOverlaySource {
 public:
  // Everything referred to outlives the source. The failure handler is called once, when the running camera
  // ends by itself, on a thread of the device; it must not block.
  CameraOverlaySource(CaptureDevices& devices, CaptureAuthorization& authorization,
                      std::optional<std::string> deviceID, const HostClock& clock,
                      const QueueFactory& makeQueue, Sleeper sleep, std::function<void()> failureHandler);
  // As stop().
  ~CameraOverlaySource();
  CameraOverlaySource(const CameraOverlaySource&) = delete;
  CameraOverlaySource& operator=(const CameraOverlaySource&) = delete;

  // Returns when the camera runs. Throws NativeServiceError cameraUnavailable or cameraDenied.
  void start();
  // Returns when the first picture has come, or throws cameraUnavailable after 40 rounds of 50 ms.
  void waitForFirstFrame();
  // On return nothing is delivered any more. Not on the source's queue.
  void stop();

  // All any thread.
  CameraTerminalState terminalState() const;
  // The newest picture, however old; nothing before the first and after the end.
  std::optional<Picture> latestFrame() const;
  // Host time at which the newest picture came.
  std::optional<MediaTime> latestFrameReceivedAt() const;
  // Pixels, each rounded down to an even number; nothing without a picture of at least 2 by 2.
  std::optional<SizeDTO> currentFrameSize() const;

 private:
  struct Shared; // what the device's thread and all readers share under one lock
  const std::shared_ptr<Shared> shared_;
  CaptureDevices& devices_;
  CaptureAuthorization& authorization_;
  const std::optional<std::string> deviceID_;
  const Sleeper sleep_;
  const std::unique_ptr<SerialQueue> queue_; // com.tessarin.camera.frames
  std::unique_ptr<DeviceStream> stream_;     // the owner's thread
};

} // namespace tessarin
