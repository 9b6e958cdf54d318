#include "model/Errors.hpp"

namespace tessarin {

std::string_view messageOf(CaptureRequestError error) {
  switch (error) {
  case CaptureRequestError::invalidEncoding:
    return "The capture request could not be decoded.";
  case CaptureRequestError::invalidGeometry:
    return "Capture geometry must contain finite, positive dimensions.";
  case CaptureRequestError::invalidOutputPath:
    return "The native capture output must be an absolute PNG path.";
  case CaptureRequestError::displayNotFound:
    return "The selected display is no longer available.";
  case CaptureRequestError::windowIDRequired:
    return "A window capture requires a window identifier.";
  case CaptureRequestError::windowChanged:
    return "The selected window moved or resized. Select it again.";
  case CaptureRequestError::regionOutsideDisplay:
    return "The selected region must stay within its display.";
  }
  return {};
}

std::string_view messageOf(RecordingRequestError error) {
  switch (error) {
  case RecordingRequestError::invalidEncoding:
    return "The recording request could not be decoded.";
  case RecordingRequestError::invalidSessionID:
    return "The recording session identifier is invalid.";
  case RecordingRequestError::invalidGeometry:
    return "Recording geometry must contain finite, positive dimensions.";
  case RecordingRequestError::invalidOutputDirectory:
    return "The recording output directory is invalid.";
  case RecordingRequestError::displayNotFound:
    return "The selected display is no longer available.";
  case RecordingRequestError::regionOutsideDisplay:
    return "The recording region must stay within its display.";
  case RecordingRequestError::unsupportedFrameRate:
    return "The recording frame rate must be 15, 30, or 60 FPS.";
  case RecordingRequestError::windowIDRequired:
    return "Window recording requires a selected window.";
  case RecordingRequestError::windowNotFound:
    return "The selected window is no longer available.";
  case RecordingRequestError::windowChanged:
    return "The selected window changed before recording started.";
  }
  return {};
}

std::string_view messageOf(ModelValidationError error) {
  switch (error) {
  case ModelValidationError::invalidDisplayGeometry:
    return "Display geometry must contain finite, positive dimensions.";
  case ModelValidationError::inconsistentDisplayScale:
    return "Display point and pixel dimensions have inconsistent scale factors.";
  }
  return {};
}

namespace serviceErrors {

NativeServiceError screenPermissionDenied() {
  return {NativeErrorCode::permissionDenied,
          "Screen Recording permission is required to capture the display."};
}
NativeServiceError interactionPermissionDenied() {
  return {NativeErrorCode::permissionDenied, "Input Monitoring permission is required for shortcut badges."};
}
NativeServiceError contentUnavailable() {
  return {NativeErrorCode::contentUnavailable, "Shareable screen content is temporarily unavailable."};
}
NativeServiceError windowUnavailable() {
  return {NativeErrorCode::windowNotFound, "The selected window is no longer available."};
}
NativeServiceError windowClosedDuringRecording() {
  return {NativeErrorCode::windowNotFound,
          "The selected window closed during recording. Finalized segments were preserved."};
}
NativeServiceError protectedContent() {
  return {NativeErrorCode::protectedContent, "The selected content cannot be captured."};
}
NativeServiceError captureFailed() {
  return {NativeErrorCode::captureFailed, "The screenshot could not be captured. Try the selection again."};
}
NativeServiceError codecUnavailable() {
  return {NativeErrorCode::codecUnavailable, "The selected recording codec is unavailable on this Mac."};
}
NativeServiceError microphoneDenied() {
  return {NativeErrorCode::microphoneDenied,
          "Microphone access is required when microphone recording is enabled."};
}
NativeServiceError microphoneUnavailable() {
  return {NativeErrorCode::microphoneUnavailable,
          "The selected microphone is unavailable. Finalized screen recording segments were preserved."};
}
NativeServiceError cameraDenied() {
  return {NativeErrorCode::cameraDenied,
          "Camera access is required when camera picture-in-picture is enabled."};
}
NativeServiceError cameraUnavailable() {
  return {NativeErrorCode::cameraUnavailable,
          "The selected camera is unavailable. Finalized screen recording segments were preserved."};
}
NativeServiceError recordingScreenStalled() {
  return {NativeErrorCode::recordingScreenStalled,
          "Screen frames stopped being written. Recording sources were retained for recovery."};
}
NativeServiceError recordingStorageLow() {
  return {NativeErrorCode::recordingStorageLow,
          "Recording stopped before storage filled. Recording sources were retained for recovery."};
}
NativeServiceError recordingFailed() {
  return {NativeErrorCode::recordingFailed, "The screen recording could not be completed."};
}
NativeServiceError clipboardFailed() {
  return {NativeErrorCode::clipboardFailed, "The screenshot could not be copied to the clipboard."};
}
NativeServiceError outputFailed() {
  return {NativeErrorCode::outputFailed, "The screenshot could not be written to its temporary output."};
}

} // namespace serviceErrors

} // namespace tessarin
