#include "command/ErrorMapping.hpp"

#include "base/Failure.hpp"
#include "base/FileSystem.hpp"
#include "command/CommandParser.hpp"
#include "command/NativeResponse.hpp"
#include "model/MediaErrors.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <new>
#include <stdexcept>

namespace tessarin {
namespace {

struct Case {
  std::exception_ptr error;
  const char* code;
  const char* message;
  int exitCode;
};

template<class E> std::exception_ptr thrown(E value) {
  return std::make_exception_ptr(Failure<E>(value));
}

void expectAll(std::initializer_list<Case> cases) {
  for (const Case& each : cases) {
    const ErrorOutcome outcome = outcomeOf(each.error);
    EXPECT_EQ(json::nameOf(outcome.error.code), each.code) << each.message;
    EXPECT_EQ(outcome.error.message, each.message);
    EXPECT_TRUE(outcome.error.recoverable);
    EXPECT_EQ(outcome.exitCode, each.exitCode) << each.message;
  }
}

TEST(ErrorMapping, TellsRefusedArguments) {
  using E = CommandParserError;
  expectAll({
      {thrown(E::invalidArguments), "invalidArguments", "Invalid native helper arguments.", 2},
      {thrown(E::invalidRequestEncoding), "invalidArguments", "The capture request is not valid base64 data.",
       2},
      {thrown(E::pathMustBeAbsolute), "invalidArguments", "Media paths must be absolute.", 2},
  });
}

TEST(ErrorMapping, TellsRefusedCaptureRequests) {
  using E = CaptureRequestError;
  expectAll({
      {thrown(E::invalidEncoding), "invalidRequest", "The capture request could not be decoded.", 2},
      {thrown(E::invalidGeometry), "invalidRequest",
       "Capture geometry must contain finite, positive dimensions.", 2},
      {thrown(E::invalidOutputPath), "invalidRequest",
       "The native capture output must be an absolute PNG path.", 2},
      {thrown(E::displayNotFound), "displayNotFound", "The selected display is no longer available.", 2},
      {thrown(E::windowIDRequired), "invalidRequest", "A window capture requires a window identifier.", 2},
      {thrown(E::windowChanged), "windowNotFound", "The selected window moved or resized. Select it again.",
       2},
      {thrown(E::regionOutsideDisplay), "invalidRequest", "The selected region must stay within its display.",
       2},
  });
}

TEST(ErrorMapping, TellsRefusedRecordingRequests) {
  using E = RecordingRequestError;
  expectAll({
      {thrown(E::invalidEncoding), "invalidRequest", "The recording request could not be decoded.", 2},
      {thrown(E::invalidSessionID), "invalidRequest", "The recording session identifier is invalid.", 2},
      {thrown(E::invalidGeometry), "invalidRequest",
       "Recording geometry must contain finite, positive dimensions.", 2},
      {thrown(E::invalidOutputDirectory), "invalidRequest", "The recording output directory is invalid.", 2},
      {thrown(E::displayNotFound), "displayNotFound", "The selected display is no longer available.", 2},
      {thrown(E::regionOutsideDisplay), "invalidRequest",
       "The recording region must stay within its display.", 2},
      {thrown(E::unsupportedFrameRate), "invalidRequest",
       "The recording frame rate must be 15, 30, or 60 FPS.", 2},
      {thrown(E::windowIDRequired), "invalidRequest", "Window recording requires a selected window.", 2},
      {thrown(E::windowNotFound), "windowNotFound", "The selected window is no longer available.", 2},
      {thrown(E::windowChanged), "windowNotFound", "The selected window changed before recording started.",
       2},
  });
}

TEST(ErrorMapping, TellsFailedRecovery) {
  using E = RecordingRecoveryError;
  const char* const failed = "The finalized recording segments could not be recovered.";
  expectAll({
      {thrown(E::invalidRequest), "invalidRequest", "The recording recovery request is invalid.", 1},
      {thrown(E::invalidMedia), "recordingMergeFailed", failed, 1},
      {thrown(E::mergeFailed), "recordingMergeFailed", failed, 1},
  });
}

TEST(ErrorMapping, TellsFailedInspection) {
  using Request = VideoAssetInspectionRequestError;
  using E = VideoAssetInspectionError;
  const char* const unopened = "The recording cannot be opened for video editing.";
  expectAll({
      {thrown(Request::invalidEncoding), "invalidRequest",
       "The video inspection request could not be decoded.", 2},
      {thrown(Request::invalidSessionID), "invalidRequest", "The video edit session identifier is invalid.",
       2},
      {thrown(Request::invalidSourcePath), "invalidRequest", "The video edit source path is invalid.", 2},
      {thrown(E::invalidAudioCapability), "outputFailed",
       "The recording audio tracks do not match its saved settings.", 1},
      {thrown(E::invalidMedia), "outputFailed", unopened, 1},
      {thrown(E::missingVideo), "outputFailed", unopened, 1},
      {thrown(E::invalidDuration), "outputFailed", unopened, 1},
      {thrown(E::invalidDimensions), "outputFailed", unopened, 1},
      {thrown(E::notComposable), "outputFailed", unopened, 1},
  });
}

TEST(ErrorMapping, TellsFailedWaveforms) {
  using Request = AudioWaveformRequestError;
  using E = AudioWaveformServiceError;
  const char* const unread = "The recording audio waveform could not be read.";
  expectAll({
      {thrown(Request::invalidEncoding), "invalidRequest", "The audio waveform request could not be decoded.",
       2},
      {thrown(Request::invalidSessionID), "invalidRequest", "The video edit session identifier is invalid.",
       2},
      {thrown(Request::invalidSourcePath), "invalidRequest", "The audio waveform source path is invalid.", 2},
      {thrown(Request::invalidSampleCount), "invalidRequest",
       "The requested audio waveform resolution is invalid.", 2},
      {thrown(E::invalidMedia), "outputFailed", unread, 1},
      {thrown(E::invalidDuration), "outputFailed", unread, 1},
      {thrown(E::readerFailed), "outputFailed", unread, 1},
  });
}

TEST(ErrorMapping, TellsFailedExports) {
  using Edit = VideoEditExportError;
  using Gif = GifExportError;
  using Narration = NarrationAudioError;
  const char* const edit = "The edited video could not be exported.";
  const char* const editRequest = "The video edit export request is invalid.";
  const char* const gif = "The GIF could not be exported within its safe limits.";
  const char* const gifRequest = "The GIF export request exceeds its safe limits.";
  const char* const narration = "The local narration audio could not be prepared.";
  expectAll({
      {thrown(Edit::invalidRequest), "invalidRequest", editRequest, 2},
      {thrown(Edit::invalidProject), "invalidRequest", editRequest, 2},
      {thrown(Edit::invalidCrop), "invalidRequest", editRequest, 2},
      {thrown(Edit::invalidMedia), "editExportFailed", edit, 1},
      {thrown(Edit::compositionFailed), "editExportFailed", edit, 1},
      {thrown(Edit::exportFailed), "editExportFailed", edit, 1},
      {thrown(Gif::invalidRequest), "invalidRequest", gifRequest, 2},
      {thrown(Gif::durationLimitExceeded), "invalidRequest", gifRequest, 2},
      {thrown(Gif::invalidMedia), "editExportFailed", gif, 1},
      {thrown(Gif::outputTooLarge), "editExportFailed", gif, 1},
      {thrown(Gif::exportFailed), "editExportFailed", gif, 1},
      {thrown(Narration::microphoneDecode), "editExportFailed", narration, 1},
      {thrown(Narration::voiceProcessing), "editExportFailed", narration, 1},
      {thrown(Narration::systemDecode), "editExportFailed", narration, 1},
      {thrown(Narration::systemDucking), "editExportFailed", narration, 1},
      {thrown(Narration::audioEncoding), "editExportFailed", narration, 1},
      {thrown(Narration::audioInsertion), "editExportFailed", narration, 1},
      {thrown(Narration::videoInsertion), "editExportFailed", narration, 1},
      {thrown(Narration::cacheValidation), "editExportFailed", narration, 1},
  });
}

TEST(ErrorMapping, TellsFailedThumbnailsAndSharing) {
  using Request = ThumbnailRequestError;
  using E = ThumbnailServiceError;
  using Share = ShareServiceError;
  const char* const thumbnail = "The history thumbnail could not be generated.";
  const char* const share = "The macOS share picker could not share the screenshot.";
  expectAll({
      {thrown(Request::invalidEncoding), "invalidRequest", "The thumbnail request is not valid JSON.", 2},
      {thrown(Request::unsupportedSchema), "invalidRequest", "The thumbnail request schema is unsupported.",
       2},
      {thrown(Request::unsafePath), "invalidRequest", "Thumbnail paths must be safe absolute paths.", 2},
      {thrown(Request::invalidPixelSize), "invalidRequest",
       "Thumbnail size must be between 32 and 1024 pixels.", 2},
      {thrown(Request::invalidTime), "invalidRequest",
       "Thumbnail time must be between 0 and 604800000 milliseconds.", 2},
      {thrown(E::invalidSource), "outputFailed", thumbnail, 1},
      {thrown(E::unsupportedMedia), "outputFailed", thumbnail, 1},
      {thrown(E::renderFailed), "outputFailed", thumbnail, 1},
      {thrown(E::outputFailed), "outputFailed", thumbnail, 1},
      {thrown(Share::invalidImage), "outputFailed", share, 1},
      {thrown(Share::presentationFailed), "outputFailed", share, 1},
      {thrown(Share::sharingFailed), "outputFailed", share, 1},
  });
}

TEST(ErrorMapping, AServiceErrorIsToldAsItIsAndNeverCountsAsRefusedInput) {
  for (const bool recoverable : {true, false}) {
    const NativeServiceError error{NativeErrorCode::invalidRequest, "A sentence.", recoverable};
    EXPECT_EQ(outcomeOf(std::make_exception_ptr(error)),
              (ErrorOutcome{{NativeErrorCode::invalidRequest, "A sentence.", recoverable}, 1}));
  }
}

TEST(ErrorMapping, AnythingElseIsUnexpected) {
  const char* const message = "The native helper encountered an unexpected error.";
  expectAll({
      {std::make_exception_ptr(std::runtime_error("detail")), "internalError", message, 1},
      {std::make_exception_ptr(std::bad_alloc()), "internalError", message, 1},
      {std::make_exception_ptr(42), "internalError", message, 1},
      {thrown(ModelValidationError::invalidDisplayGeometry), "internalError", message, 1},
      {std::make_exception_ptr(json::DecodingFailure("missing key: project")), "internalError", message, 1},
      {std::make_exception_ptr(FileFailure(FileOperation::info, 2)), "internalError", message, 1},
  });
}

TEST(NativeResponse, ASuccessHasNoErrorAndAFailureNoData) {
  EXPECT_EQ(succeeded(OperationPayload{true}),
            (NativeExecution{R"({"data":{"completed":true},"ok":true,"schemaVersion":1})", 0}));
  EXPECT_EQ(
      encode(NativeResponse<OperationPayload>{.ok = false,
                                              .data = std::nullopt,
                                              .error = NativeErrorPayload{NativeErrorCode::outputFailed,
                                                                          "No /such/path.", true}},
             2),
      (NativeExecution{
          R"({"error":{"code":"outputFailed","message":"No /such/path.","recoverable":true},"ok":false,"schemaVersion":1})",
          2}));
}

TEST(NativeResponse, ABareNumberIsData) {
  EXPECT_EQ(succeeded(std::numeric_limits<std::uint64_t>::max()).output,
            R"({"data":18446744073709551615,"ok":true,"schemaVersion":1})");
}

const char* const unencodable =
    "{\"schemaVersion\":1,\"ok\":false,\"error\":{\"code\":\"internalError\",\"message\":"
    "\"The native response could not be encoded.\",\"recoverable\":true}}";

TEST(NativeResponse, WhatHasNoJsonFormBecomesTheFixedTextAndAFailure) {
  EXPECT_EQ(succeeded(std::numeric_limits<double>::infinity()), (NativeExecution{unencodable, 1}));
  EXPECT_EQ(
      encode(
          NativeResponse<double>{.ok = true, .data = std::numeric_limits<double>::quiet_NaN(), .error = {}},
          2),
      (NativeExecution{unencodable, 1}));
  EXPECT_EQ(succeeded(std::string("\xFF")), (NativeExecution{unencodable, 1}));
}

} // namespace
} // namespace tessarin
