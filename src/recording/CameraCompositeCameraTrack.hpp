#pragma once

#include "base/MediaTime.hpp"
#include "model/Picture.hpp"
#include "ports/MediaWriting.hpp"
#include "recording/CameraCompositeFailure.hpp"
#include "recording/CameraOverlaySource.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace tessarin {

// The camera's track of a segment: one picture for each of the screen's, at the same time. Confined to the
// segment's queue.
class CameraCompositeCameraTrack {
 public:
  // All outlive the track. The input is null when the camera had no picture to take a size from; every
  // frame then fails.
  CameraCompositeCameraTrack(const CameraOverlaySource& camera, const MediaFileWriter& writer,
                             VideoInput* input);

  // The camera's newest picture, however old; its age is watched elsewhere.
  std::optional<Picture> latestFrame() const { return camera_.latestFrame(); }

  bool isReadyForMoreMediaData() const { return input_ == nullptr || input_->isReadyForMoreMediaData(); }
  // Null without an input.
  std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler);
  void markAsFinished();

  // Converts the picture to the track's size, covering it, and hands it over. A picture that is still the
  // one before goes as the very same CodablePicture, which the coder repeats at hardly any cost.
  std::optional<CameraCompositeFailure> append(const std::optional<Picture>& frame, MediaTime time);

  std::int64_t appendedFrameCount() const { return appendedFrameCount_; }
  // Of the first and the last frame, from the epoch; not numeric before it.
  MediaTime firstTime() const { return firstTime_; }
  MediaTime lastTime() const { return lastTime_; }

 private:
  std::shared_ptr<const CodablePicture> rendered(const Picture& frame);

  const CameraOverlaySource& camera_;
  const MediaFileWriter& writer_;
  VideoInput* const input_;
  Picture source_; // what `rendered_` was made of; held so that no other picture takes its place in memory
  std::shared_ptr<const CodablePicture> rendered_;
  std::int64_t appendedFrameCount_ = 0;
  MediaTime firstTime_;
  MediaTime lastTime_;
};

} // namespace tessarin
