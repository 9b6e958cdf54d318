#include "recording/RecordingSources.hpp"

#include "model/Errors.hpp"
#include "recording/RecordingProtocol.hpp"
#include "recording/RecordingService.hpp"

namespace tessarin {

RecordingSources::RecordingSources(const RecordingEnvironment& environment,
                                   const RecordingSettingsDTO& settings,
                                   const std::function<void()>& failureHandler, std::string_view& stage) {
  stage = RecordingStage::microphoneStart;
  if (settings.microphone) {
    microphone_ = std::make_unique<MicrophoneCaptureSource>(
        environment.devices, environment.authorization, settings.microphoneDeviceID, environment.makeQueue,
        environment.sleep, failureHandler);
    microphone_->start();
    microphone_->waitForFirstSample();
  }
  stage = RecordingStage::cameraStart;
  if (settings.camera) {
    camera_ = std::make_unique<CameraOverlaySource>(environment.devices, environment.authorization,
                                                    settings.cameraDeviceID, environment.clock,
                                                    environment.makeQueue, environment.sleep, failureHandler);
    camera_->start();
    camera_->waitForFirstFrame();
    cameraPixelSize_ = camera_->currentFrameSize();
    if (!cameraPixelSize_)
      throw serviceErrors::cameraUnavailable();
  }
}

void RecordingSources::throwIfFailed() const {
  if (microphone_ && microphone_->terminalState().failedUnexpectedly)
    throw serviceErrors::microphoneUnavailable();
  if (camera_ && camera_->terminalState().failedUnexpectedly)
    throw serviceErrors::cameraUnavailable();
}

} // namespace tessarin
