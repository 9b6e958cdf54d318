#pragma once

#include "recording/CameraOverlaySource.hpp"
#include "recording/MicrophoneCaptureSource.hpp"
#include "recording/RecordingModels.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace tessarin {

struct RecordingEnvironment;

// The microphone and the camera of a session, as far as its settings ask for them. They run from the
// construction to the destruction, for all segments.
class RecordingSources {
 public:
  // Starts the microphone and then the camera, each up to its first delivery; puts the name of the step into
  // the stage. The handler is called at most once for each, when it ends by itself, on a thread of the
  // device; it must not block. Throws NativeServiceError, with nothing running.
  RecordingSources(const RecordingEnvironment& environment, const RecordingSettingsDTO& settings,
                   const std::function<void()>& failureHandler, std::string_view& stage);
  // Stops the camera, then the microphone.
  ~RecordingSources() = default;
  RecordingSources(const RecordingSources&) = delete;
  RecordingSources& operator=(const RecordingSources&) = delete;

  // Null without one.
  MicrophoneCaptureSource* microphone() const { return microphone_.get(); }
  CameraOverlaySource* camera() const { return camera_.get(); }
  // Of the camera's first picture, even pixels; absent without a camera.
  const std::optional<SizeDTO>& cameraPixelSize() const { return cameraPixelSize_; }

  // Throws the error of a source that has ended by itself; the microphone's beats the camera's.
  void throwIfFailed() const;

 private:
  // In the order of their starts.
  std::unique_ptr<MicrophoneCaptureSource> microphone_;
  std::unique_ptr<CameraOverlaySource> camera_;
  std::optional<SizeDTO> cameraPixelSize_;
};

} // namespace tessarin
