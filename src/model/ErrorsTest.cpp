#include "model/Errors.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

TEST(NativeErrorCode, HasTwentyFiveRawValuesInTheirOrder) {
  constexpr std::string_view expected[] = {
      "invalidArguments",       "invalidRequest",       "permissionDenied",  "permissionRestartRequired",
      "contentUnavailable",     "displayNotFound",      "windowNotFound",    "protectedContent",
      "captureFailed",          "recordingUnsupported", "codecUnavailable",  "microphoneDenied",
      "microphoneUnavailable",  "cameraDenied",         "cameraUnavailable", "recordingBusy",
      "recordingScreenStalled", "recordingStorageLow",  "recordingFailed",   "recordingMergeFailed",
      "recordingCancelled",     "clipboardFailed",      "outputFailed",      "editExportFailed",
      "internalError"};
  static_assert(std::size(expected) == 25);
  static_assert(jsonNames(NativeErrorCode{}).size() == 25);
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(json::nameOf(static_cast<NativeErrorCode>(i)), expected[i]);
    EXPECT_EQ(json::fromName<NativeErrorCode>(expected[i]), static_cast<NativeErrorCode>(i));
  }
  EXPECT_FALSE(json::fromName<NativeErrorCode>("invalidarguments"));
}

TEST(NativeErrorPayload, GoesBothWays) {
  const NativeErrorPayload payload{NativeErrorCode::outputFailed, "Cannot write /a/b.", true};
  const std::string text = R"({"code":"outputFailed","message":"Cannot write /a/b.","recoverable":true})";
  EXPECT_EQ(json::encode(payload), text);
  EXPECT_EQ(json::decode<NativeErrorPayload>(text), payload);
  EXPECT_THROW(json::decode<NativeErrorPayload>(R"({"code":"other","message":"","recoverable":true})"),
               json::DecodingFailure);
}

TEST(ErrorMessages, OfCaptureRequests) {
  using enum CaptureRequestError;
  EXPECT_EQ(messageOf(invalidEncoding), "The capture request could not be decoded.");
  EXPECT_EQ(messageOf(invalidGeometry), "Capture geometry must contain finite, positive dimensions.");
  EXPECT_EQ(messageOf(invalidOutputPath), "The native capture output must be an absolute PNG path.");
  EXPECT_EQ(messageOf(displayNotFound), "The selected display is no longer available.");
  EXPECT_EQ(messageOf(windowIDRequired), "A window capture requires a window identifier.");
  EXPECT_EQ(messageOf(windowChanged), "The selected window moved or resized. Select it again.");
  EXPECT_EQ(messageOf(regionOutsideDisplay), "The selected region must stay within its display.");
}

TEST(ErrorMessages, OfRecordingRequests) {
  using enum RecordingRequestError;
  EXPECT_EQ(messageOf(invalidEncoding), "The recording request could not be decoded.");
  EXPECT_EQ(messageOf(invalidSessionID), "The recording session identifier is invalid.");
  EXPECT_EQ(messageOf(invalidGeometry), "Recording geometry must contain finite, positive dimensions.");
  EXPECT_EQ(messageOf(invalidOutputDirectory), "The recording output directory is invalid.");
  EXPECT_EQ(messageOf(displayNotFound), "The selected display is no longer available.");
  EXPECT_EQ(messageOf(regionOutsideDisplay), "The recording region must stay within its display.");
  EXPECT_EQ(messageOf(unsupportedFrameRate), "The recording frame rate must be 15, 30, or 60 FPS.");
  EXPECT_EQ(messageOf(windowIDRequired), "Window recording requires a selected window.");
  EXPECT_EQ(messageOf(windowNotFound), "The selected window is no longer available.");
  EXPECT_EQ(messageOf(windowChanged), "The selected window changed before recording started.");
}

TEST(ErrorMessages, OfDisplaysThatContradictThemselves) {
  EXPECT_EQ(messageOf(ModelValidationError::invalidDisplayGeometry),
            "Display geometry must contain finite, positive dimensions.");
  EXPECT_EQ(messageOf(ModelValidationError::inconsistentDisplayScale),
            "Display point and pixel dimensions have inconsistent scale factors.");
}

TEST(ServiceErrors, HaveTheirCodesAndMessagesAndAreRecoverable) {
  struct Row {
    NativeServiceError error;
    NativeErrorCode code;
    const char* message;
  };
  using enum NativeErrorCode;
  const Row rows[] = {
      {serviceErrors::screenPermissionDenied(), permissionDenied,
       "Screen Recording permission is required to capture the display."},
      {serviceErrors::interactionPermissionDenied(), permissionDenied,
       "Input Monitoring permission is required for shortcut badges."},
      {serviceErrors::contentUnavailable(), contentUnavailable,
       "Shareable screen content is temporarily unavailable."},
      {serviceErrors::windowUnavailable(), windowNotFound, "The selected window is no longer available."},
      {serviceErrors::windowClosedDuringRecording(), windowNotFound,
       "The selected window closed during recording. Finalized segments were preserved."},
      {serviceErrors::protectedContent(), protectedContent, "The selected content cannot be captured."},
      {serviceErrors::captureFailed(), captureFailed,
       "The screenshot could not be captured. Try the selection again."},
      {serviceErrors::codecUnavailable(), codecUnavailable,
       "The selected recording codec is unavailable on this Mac."},
      {serviceErrors::microphoneDenied(), microphoneDenied,
       "Microphone access is required when microphone recording is enabled."},
      {serviceErrors::microphoneUnavailable(), microphoneUnavailable,
       "The selected microphone is unavailable. Finalized screen recording segments were preserved."},
      {serviceErrors::cameraDenied(), cameraDenied,
       "Camera access is required when camera picture-in-picture is enabled."},
      {serviceErrors::cameraUnavailable(), cameraUnavailable,
       "The selected camera is unavailable. Finalized screen recording segments were preserved."},
      {serviceErrors::recordingScreenStalled(), recordingScreenStalled,
       "Screen frames stopped being written. Recording sources were retained for recovery."},
      {serviceErrors::recordingStorageLow(), recordingStorageLow,
       "Recording stopped before storage filled. Recording sources were retained for recovery."},
      {serviceErrors::recordingFailed(), recordingFailed, "The screen recording could not be completed."},
      {serviceErrors::clipboardFailed(), clipboardFailed,
       "The screenshot could not be copied to the clipboard."},
      {serviceErrors::outputFailed(), outputFailed,
       "The screenshot could not be written to its temporary output."},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.error, (NativeServiceError{row.code, row.message, true})) << row.message;
}

} // namespace
} // namespace tessarin
