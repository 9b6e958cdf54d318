#include "recording/CameraOverlaySource.hpp"

#include <utility>

namespace tessarin {

struct CameraOverlaySource::Newest final : CaptureSource::Shared {
  // Guarded by lock.
  std::optional<Picture> frame;
  std::optional<MediaTime> receivedAt;

  void clearLocked() override { frame.reset(); }

  // On the source's queue.
  void receive(const Picture& picture, MediaTime now) {
    std::optional<Picture> previous; // given up outside the lock
    const std::lock_guard guard(lock);
    if (terminalState.stopped)
      return;
    hasDelivered = true;
    previous = std::exchange(frame, picture);
    receivedAt = now;
  }
};

CameraOverlaySource::CameraOverlaySource(CaptureDevices& devices, CaptureAuthorization& authorization,
                                         std::optional<std::string> deviceID, const HostClock& clock,
                                         const QueueFactory& makeQueue, Sleeper sleep,
                                         std::function<void()> failureHandler)
    : CaptureSource({.kind = MediaKind::video,
                     .queueLabel = "com.tessarin.camera.frames",
                     .unavailable = serviceErrors::cameraUnavailable(),
                     .denied = serviceErrors::cameraDenied()},
                    authorization, makeQueue, std::move(sleep), std::move(failureHandler),
                    std::make_shared<Newest>()),
      devices_(devices), deviceID_(std::move(deviceID)), clock_(clock),
      newest_(std::static_pointer_cast<Newest>(shared())) {}

CameraOverlaySource::~CameraOverlaySource() {
  stop();
}

std::unique_ptr<DeviceStream> CameraOverlaySource::open(DeviceEndHandler onEnd) {
  return devices_.openCamera(
      deviceID_,
      [newest = newest_, &queue = queue(), &clock = clock_](const CameraFrame& frame) {
        queue.async([newest, &clock, picture = frame.picture] { newest->receive(picture, clock.now()); });
      },
      std::move(onEnd));
}

std::optional<Picture> CameraOverlaySource::latestFrame() const {
  const std::lock_guard guard(newest_->lock);
  return newest_->frame;
}

std::optional<MediaTime> CameraOverlaySource::latestFrameReceivedAt() const {
  const std::lock_guard guard(newest_->lock);
  return newest_->receivedAt;
}

std::optional<SizeDTO> CameraOverlaySource::currentFrameSize() const {
  const std::optional<Picture> frame = latestFrame();
  if (!frame || frame->view.width < 2 || frame->view.height < 2)
    return std::nullopt;
  const auto even = [](std::int32_t pixels) { return std::int64_t{pixels - pixels % 2}; };
  return SizeDTO{even(frame->view.width), even(frame->view.height)};
}

} // namespace tessarin
