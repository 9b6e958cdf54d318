#pragma once

#include "base/Failure.hpp"
#include "base/Json.hpp"

#include <cstdint>
#include <string>
#include <string_view>

// The closed vocabulary of failures: what goes over the wire, and the small enumerations that services
// throw. How each enumeration meets the wire is one table in the command room.
namespace tessarin {

enum class NativeErrorCode : std::uint8_t {
  invalidArguments,
  invalidRequest,
  permissionDenied,
  permissionRestartRequired,
  contentUnavailable,
  displayNotFound,
  windowNotFound,
  protectedContent,
  captureFailed,
  recordingUnsupported,
  codecUnavailable,
  microphoneDenied,
  microphoneUnavailable,
  cameraDenied,
  cameraUnavailable,
  recordingBusy,
  recordingScreenStalled,
  recordingStorageLow,
  recordingFailed,
  recordingMergeFailed,
  recordingCancelled,
  clipboardFailed,
  outputFailed,
  editExportFailed,
  internalError
};

constexpr auto jsonNames(NativeErrorCode) {
  using enum NativeErrorCode;
  return json::names<NativeErrorCode>({{invalidArguments, "invalidArguments"},
                                       {invalidRequest, "invalidRequest"},
                                       {permissionDenied, "permissionDenied"},
                                       {permissionRestartRequired, "permissionRestartRequired"},
                                       {contentUnavailable, "contentUnavailable"},
                                       {displayNotFound, "displayNotFound"},
                                       {windowNotFound, "windowNotFound"},
                                       {protectedContent, "protectedContent"},
                                       {captureFailed, "captureFailed"},
                                       {recordingUnsupported, "recordingUnsupported"},
                                       {codecUnavailable, "codecUnavailable"},
                                       {microphoneDenied, "microphoneDenied"},
                                       {microphoneUnavailable, "microphoneUnavailable"},
                                       {cameraDenied, "cameraDenied"},
                                       {cameraUnavailable, "cameraUnavailable"},
                                       {recordingBusy, "recordingBusy"},
                                       {recordingScreenStalled, "recordingScreenStalled"},
                                       {recordingStorageLow, "recordingStorageLow"},
                                       {recordingFailed, "recordingFailed"},
                                       {recordingMergeFailed, "recordingMergeFailed"},
                                       {recordingCancelled, "recordingCancelled"},
                                       {clipboardFailed, "clipboardFailed"},
                                       {outputFailed, "outputFailed"},
                                       {editExportFailed, "editExportFailed"},
                                       {internalError, "internalError"}});
}

struct NativeErrorPayload {
  NativeErrorCode code = NativeErrorCode::internalError;
  std::string message;
  bool recoverable = true;

  static constexpr auto fields() {
    return json::table(json::field("code", &NativeErrorPayload::code),
                       json::field("message", &NativeErrorPayload::message),
                       json::field("recoverable", &NativeErrorPayload::recoverable));
  }
  bool operator==(const NativeErrorPayload&) const = default;
};

// Thrown by a service that knows the outcome on the wire itself. Plain value.
struct NativeServiceError {
  NativeErrorCode code = NativeErrorCode::internalError;
  std::string message;
  bool recoverable = true;

  bool operator==(const NativeServiceError&) const = default;
};

enum class CaptureRequestError : std::uint8_t {
  invalidEncoding,
  invalidGeometry,
  invalidOutputPath,
  displayNotFound,
  windowIDRequired,
  windowChanged,
  regionOutsideDisplay
};

enum class RecordingRequestError : std::uint8_t {
  invalidEncoding,
  invalidSessionID,
  invalidGeometry,
  invalidOutputDirectory,
  displayNotFound,
  regionOutsideDisplay,
  unsupportedFrameRate,
  windowIDRequired,
  windowNotFound,
  windowChanged
};

enum class ModelValidationError : std::uint8_t { invalidDisplayGeometry, inconsistentDisplayScale };

// The sentence that a user reads; fixed texts.
std::string_view messageOf(CaptureRequestError error);
std::string_view messageOf(RecordingRequestError error);
std::string_view messageOf(ModelValidationError error);

// The failures that services throw as they stand, each with its one text and recoverable true.
namespace serviceErrors {
NativeServiceError screenPermissionDenied();
NativeServiceError interactionPermissionDenied();
NativeServiceError contentUnavailable();
NativeServiceError windowUnavailable();
NativeServiceError windowClosedDuringRecording();
NativeServiceError protectedContent();
NativeServiceError captureFailed();
NativeServiceError codecUnavailable();
NativeServiceError microphoneDenied();
NativeServiceError microphoneUnavailable();
NativeServiceError cameraDenied();
NativeServiceError cameraUnavailable();
NativeServiceError recordingScreenStalled();
NativeServiceError recordingStorageLow();
NativeServiceError recordingFailed();
NativeServiceError clipboardFailed();
NativeServiceError outputFailed();
} // namespace serviceErrors

} // namespace tessarin
