#include "recording/CameraCompositeCameraTrack.hpp"

#include <utility>

namespace tessarin {

CameraCompositeCameraTrack::CameraCompositeCameraTrack(const CameraOverlaySource& camera,
                                                       const MediaFileWriter& writer, VideoInput* input)
    : camera_(camera), writer_(writer), input_(input) {}

std::unique_ptr<ReadinessObservation>
CameraCompositeCameraTrack::observeReadiness(std::function<void()> handler) {
  return input_ == nullptr ? nullptr : input_->observeReadiness(std::move(handler));
}

void CameraCompositeCameraTrack::markAsFinished() {
  if (input_ != nullptr)
    input_->markAsFinished();
}

std::optional<CameraCompositeFailure> CameraCompositeCameraTrack::append(const std::optional<Picture>& frame,
                                                                         MediaTime time) {
  if (input_ == nullptr || !frame)
    return CameraCompositeFailure{"camera-frame-unavailable", serviceErrors::cameraUnavailable()};
  // A file that has failed since it took the screen's picture has no pictures to hand out any more.
  if (writer_.status() != MediaWriterStatus::writing)
    return CameraCompositeFailure{"camera-pixel-buffer-pool", std::nullopt};
  const std::shared_ptr<const CodablePicture> picture = rendered(*frame);
  if (!picture)
    return CameraCompositeFailure{"allocate-camera-frame", std::nullopt};
  if (!input_->append(picture, time))
    return CameraCompositeFailure{"append-camera", std::nullopt};
  ++appendedFrameCount_;
  if (!firstTime_.isNumeric())
    firstTime_ = time;
  lastTime_ = time;
  return std::nullopt;
}

std::shared_ptr<const CodablePicture> CameraCompositeCameraTrack::rendered(const Picture& frame) {
  const bool isSame =
      rendered_ && frame.owner && frame.owner == source_.owner && frame.view.data == source_.view.data;
  if (!isSame) {
    rendered_ = input_->render(frame.view);
    source_ = frame;
  }
  return rendered_;
}

} // namespace tessarin
