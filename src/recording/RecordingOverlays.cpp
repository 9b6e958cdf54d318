#include "recording/RecordingOverlays.hpp"

#include "model/Errors.hpp"
#include "recording/RecordingCameraOverlay.hpp"
#include "recording/RecordingOverlayRegistration.hpp"
#include "recording/RecordingShortcutOverlay.hpp"

#include <optional>
#include <utility>

namespace tessarin {

RecordingOverlays::RecordingOverlays(RecordingOverlayEnvironment environment)
    : environment_(std::move(environment)) {}

// The panels are gone then, so what is left of the overlays may go on any thread.
RecordingOverlays::~RecordingOverlays() {
  close();
}

void RecordingOverlays::showCamera(CameraOverlaySource& source, const RecordingRequestDTO& request,
                                   const RecordingConfigurationPlan& plan,
                                   std::function<void()> failureHandler) {
  environment_.mainQueue.sync([&] {
    camera_ = std::make_shared<RecordingCameraOverlay>(environment_, source, request, plan,
                                                       std::move(failureHandler));
  });
}

void RecordingOverlays::showShortcuts(const RectDTO& captureRect) {
  environment_.mainQueue.sync(
      [&] { shortcuts_ = std::make_shared<RecordingShortcutOverlay>(environment_, captureRect); });
}

RunningApplication RecordingOverlays::captureExclusionApplication() {
  std::optional<std::uint32_t> window;
  environment_.mainQueue.sync([&] {
    if (camera_)
      window = camera_->windowID();
    else if (shortcuts_)
      window = shortcuts_->windowID();
  });
  if (!window)
    throw serviceErrors::contentUnavailable();
  return RecordingOverlayRegistration::application(*window, environment_.desktop, environment_.sleep);
}

void RecordingOverlays::receive(const RecordingShortcutUpdate& update) {
  if (shortcuts_)
    environment_.mainQueue.async([shortcuts = shortcuts_, update] { shortcuts->receive(update); });
}

void RecordingOverlays::startSegment(std::int64_t activeDurationMs, std::uint64_t epochHostTimeNs) {
  if (camera_)
    environment_.mainQueue.sync([&] { camera_->startSegment(activeDurationMs, epochHostTimeNs); });
}

void RecordingOverlays::pauseCamera() {
  if (camera_)
    environment_.mainQueue.sync([&] { camera_->pauseSegment(); });
}

void RecordingOverlays::clearShortcuts() {
  if (shortcuts_)
    environment_.mainQueue.sync([&] { shortcuts_->clear(); });
}

void RecordingOverlays::finishCamera(std::int64_t activeDurationMs) {
  if (camera_)
    environment_.mainQueue.sync([&] { camera_->finish(activeDurationMs); });
}

void RecordingOverlays::closeCamera() {
  if (camera_)
    environment_.mainQueue.sync([&] { camera_->close(); });
}

void RecordingOverlays::close() noexcept {
  if (isEmpty())
    return;
  environment_.mainQueue.sync([&] {
    if (camera_)
      camera_->close();
    if (shortcuts_)
      shortcuts_->close();
  });
}

} // namespace tessarin
