#include "command/ErrorMapping.hpp"

#include "base/Failure.hpp"
#include "command/CommandParser.hpp"
#include "command/NativeResponse.hpp"
#include "model/MediaErrors.hpp"

#include <optional>
#include <string>
#include <type_traits>

namespace tessarin {

namespace {

// Some cases of one enumeration, with the code and status that they share.
template<NativeErrorCode code, std::int32_t exitCode, auto... cases>
std::optional<ErrorOutcome> row(const std::exception& error) {
  using Case = std::common_type_t<decltype(cases)...>;
  const auto* const failure = dynamic_cast<const Failure<Case>*>(&error);
  if (failure == nullptr || !((failure->value() == cases) || ...))
    return std::nullopt;
  return ErrorOutcome{{code, std::string(messageOf(failure->value())), true}, exitCode};
}

// Every case of an enumeration.
template<NativeErrorCode code, std::int32_t exitCode, class Case>
std::optional<ErrorOutcome> rowOfAll(const std::exception& error) {
  const auto* const failure = dynamic_cast<const Failure<Case>*>(&error);
  if (failure == nullptr)
    return std::nullopt;
  return ErrorOutcome{{code, std::string(messageOf(failure->value())), true}, exitCode};
}

using enum NativeErrorCode;
using exitStatus::failed;
using exitStatus::refused;
using Capture = CaptureRequestError;
using Record = RecordingRequestError;
using Recovery = RecordingRecoveryError;
using Edit = VideoEditExportError;
using Gif = GifExportError;

// Unevenness between the rows is meant: a bad recovery request counts as failed work, an unknown window
// of a recording as refused input.
constexpr std::optional<ErrorOutcome> (*rows[])(const std::exception&) = {
    rowOfAll<invalidArguments, refused, CommandParserError>,
    row<invalidRequest, refused, Capture::invalidEncoding, Capture::invalidGeometry,
        Capture::invalidOutputPath, Capture::windowIDRequired, Capture::regionOutsideDisplay>,
    row<displayNotFound, refused, Capture::displayNotFound>,
    row<windowNotFound, refused, Capture::windowChanged>,
    row<invalidRequest, refused, Record::invalidEncoding, Record::invalidSessionID, Record::invalidGeometry,
        Record::invalidOutputDirectory, Record::regionOutsideDisplay, Record::unsupportedFrameRate,
        Record::windowIDRequired>,
    row<displayNotFound, refused, Record::displayNotFound>,
    row<windowNotFound, refused, Record::windowNotFound, Record::windowChanged>,
    row<invalidRequest, failed, Recovery::invalidRequest>,
    row<recordingMergeFailed, failed, Recovery::invalidMedia, Recovery::mergeFailed>,
    rowOfAll<invalidRequest, refused, VideoAssetInspectionRequestError>,
    rowOfAll<outputFailed, failed, VideoAssetInspectionError>,
    rowOfAll<invalidRequest, refused, AudioWaveformRequestError>,
    rowOfAll<outputFailed, failed, AudioWaveformServiceError>,
    row<invalidRequest, refused, Edit::invalidRequest, Edit::invalidProject, Edit::invalidCrop>,
    row<editExportFailed, failed, Edit::invalidMedia, Edit::compositionFailed, Edit::exportFailed>,
    row<invalidRequest, refused, Gif::invalidRequest, Gif::durationLimitExceeded>,
    row<editExportFailed, failed, Gif::invalidMedia, Gif::outputTooLarge, Gif::exportFailed>,
    rowOfAll<invalidRequest, refused, ThumbnailRequestError>,
    rowOfAll<editExportFailed, failed, NarrationAudioError>,
    rowOfAll<outputFailed, failed, ThumbnailServiceError>,
    rowOfAll<outputFailed, failed, ShareServiceError>,
};

} // namespace

ErrorOutcome outcomeOf(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const NativeServiceError& service) {
    return {{service.code, service.message, service.recoverable}, failed};
  } catch (const std::exception& other) {
    for (const auto& each : rows)
      if (const auto outcome = each(other))
        return *outcome;
  } catch (...) {
    // Falls to what is told of anything else.
  }
  return {{internalError, "The native helper encountered an unexpected error.", true}, failed};
}

} // namespace tessarin
