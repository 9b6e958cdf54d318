#include "command/NativeCLI.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "command/CommandParser.hpp"
#include "command/ErrorMapping.hpp"
#include "desktop/CapturePermissionService.hpp"
#include "desktop/CapturePreparationService.hpp"
#include "desktop/CaptureService.hpp"
#include "desktop/ContentService.hpp"
#include "desktop/SpeechPermissionService.hpp"
#include "editing/VideoAssetInspector.hpp"
#include "editing/VideoEditExporter.hpp"
#include "model/MediaErrors.hpp"
#include "model/Permission.hpp"
#include "narration/AudioWaveformService.hpp"
#include "project/VideoEditRequestFile.hpp"
#include "recording/RecordingDiskCapacityService.hpp"
#include "recording/RecordingInputDeviceService.hpp"
#include "recording/RecordingRecoveryService.hpp"
#include "recording/RecordingSystemAudioSampleRequest.hpp"
#include "recording/RecordingSystemAudioSampler.hpp"

#include <exception>
#include <set>
#include <variant>

namespace tessarin {

namespace {

namespace c = commands;

// Decodes the request that a command carries. What was wrong with it is dropped: the command's own error
// says all that a host is told.
template<class Request, class Case> Request decoded(const std::string& requestJSONBase64, Case undecodable) {
  const auto text = decodedBase64(requestJSONBase64);
  if (!text)
    fail(undecodable);
  try {
    return json::decode<Request>(std::string_view(*text));
  } catch (const json::DecodingFailure&) {
    fail(undecodable);
  }
}

// The command is part of the grammar, but its service is built later.
class NotBuiltYet : public std::exception {
 public:
  const char* what() const noexcept override { return "the service of this command is built later"; }
};

[[noreturn]] NativeExecution later() {
  throw NotBuiltYet();
}

// A request whose record comes with its service: all that can be said of it is that it is an object.
struct LaterRequest {
  static constexpr auto fields() { return json::table(); }
};

template<class Case> NativeExecution later(const std::string& requestJSONBase64, Case undecodable) {
  (void)decoded<LaterRequest>(requestJSONBase64, undecodable);
  later();
}

NativeExecution sampleSystemAudio(const NativeServices& services, const std::string& requestJSONBase64) {
  constexpr auto undecodable = RecordingRequestError::invalidEncoding;
  const auto request = decoded<RecordingSystemAudioSampleRequestDTO>(requestJSONBase64, undecodable);
  if (request.displayID.empty())
    fail(undecodable);
  const ContentService content(services.desktop);
  const RecordingSystemAudioSampler sampler(content, services.devices, services.makeQueue, services.sleep);
  return succeeded(sampler.sample(request.displayID));
}

NativeExecution list(const NativeServices& services, bool excludeParentApplication) {
  std::set<std::int32_t> excludedProcessIdentifiers;
  if (excludeParentApplication)
    excludedProcessIdentifiers.insert(services.parentProcessIdentifier());
  const ContentService content(services.desktop, {}, std::move(excludedProcessIdentifiers));
  return succeeded(content.load().payload);
}

CaptureService::Ports capturePorts(const NativeServices& services) {
  return {services.desktop, services.stills, services.images, services.applications, services.sleep};
}

NativeExecution capture(const NativeServices& services, const std::string& requestJSONBase64) {
  const auto request = decoded<CaptureRequestDTO>(requestJSONBase64, CaptureRequestError::invalidEncoding);
  return succeeded(
      CaptureService(capturePorts(services), services.parentProcessIdentifier()).capture(request));
}

NativeExecution prepareCapture(const NativeServices& services, const std::string& requestJSONBase64) {
  const auto request =
      decoded<CapturePreparationRequest>(requestJSONBase64, CommandParserError::invalidRequestEncoding);
  const CapturePreparationService service({.capture = capturePorts(services),
                                           .files = services.files,
                                           .clock = services.clock,
                                           .parentProcessIdentifier = services.parentProcessIdentifier});
  return succeeded(service.prepare(request));
}

// The session reports by its own events; there is no reply at its end.
NativeExecution record(const NativeServices& services, const std::string& requestJSONBase64) {
  const auto request =
      decoded<RecordingRequestDTO>(requestJSONBase64, RecordingRequestError::invalidEncoding);
  return {std::string(), services.record(request)};
}

NativeExecution recover(const NativeServices& services, const std::string& requestJSONBase64) {
  const auto request =
      decoded<RecordingRecoveryRequestDTO>(requestJSONBase64, RecordingRecoveryError::invalidRequest);
  return succeeded(RecordingRecoveryService(services.files, services.reencoder).recovery(request));
}

NativeExecution inspectEditSource(const NativeServices& services, const std::string& requestJSONBase64) {
  const auto request = decoded<VideoAssetInspectionRequestDTO>(
      requestJSONBase64, VideoAssetInspectionRequestError::invalidEncoding);
  return succeeded(VideoAssetInspector(services.assets).inspect(request.validated()));
}

NativeExecution audioWaveform(const NativeServices& services, const std::string& requestJSONBase64) {
  const auto request =
      decoded<AudioWaveformRequestDTO>(requestJSONBase64, AudioWaveformRequestError::invalidEncoding);
  return succeeded(AudioWaveformService(services.assets, services.makeQueue).generate(request.validated()));
}

// A request in a file has been checked by its reader, and is checked again like any other.
ValidatedVideoEditExportRequest editInFile(const NativeServices& services, const std::string& path) {
  return VideoEditRequestFile::read(services.files, path).validated();
}

NativeExecution exportEdit(const NativeServices& services, const ValidatedVideoEditExportRequest& request) {
  ExportProgress progress(services.clock, services.progress);
  const VideoEditExporter exporter(
      {.files = services.files,
       .assets = services.assets,
       .movies = services.movies,
       .prepareNarration = [](const auto&) -> ValidatedVideoEditExportRequest { throw NotBuiltYet(); },
       .progress = [&](int permille) { progress.report(permille); },
       .stop = services.stop()});
  return succeeded(exporter.exportVideo(request));
}

NativeExecution answered(PermissionStatus status) {
  return succeeded(PermissionPayload{status});
}

// A preflight cannot tell a refusal from a question not asked yet.
NativeExecution preflighted(bool hasAccess) {
  return answered(hasAccess ? PermissionStatus::granted : PermissionStatus::notDetermined);
}

// A microphone or a camera that was asked for and refused is a failure; elsewhere a refusal is an answer.
NativeExecution requested(PermissionStatus status, NativeServiceError (*refusal)()) {
  if (status != PermissionStatus::granted)
    throw refusal();
  return answered(status);
}

NativeExecution inputDevices(const NativeServices& services) {
  const RecordingInputDeviceService service(services.devices);
  RecordingInputDevicesPayload payload;
  payload.microphones = service.devices(MediaKind::audio);
  payload.cameras = service.devices(MediaKind::video);
  return succeeded(std::move(payload));
}

// A bare number, with no object around it.
NativeExecution availableBytes(const NativeServices& services) {
  return succeeded(
      RecordingDiskCapacityService(services.files, services.cachesDirectory, services.temporaryDirectory)
          .availableBytes());
}

// The dispatch table, one entry a command. Where an entry says `later`, that is all its service replaces.
struct Dispatch {
  const NativeServices& services;

  NativeExecution operator()(const c::RenderHdr&) const { return later(); }
  NativeExecution operator()(const c::CopyHdr&) const { return later(); }
  NativeExecution operator()(const c::RecognizeText& it) const {
    return later(it.requestJSONBase64, CommandParserError::invalidRequestEncoding);
  }
  NativeExecution operator()(const c::WarmTextRecognition&) const { return later(); }
  NativeExecution operator()(const c::RecognizeQr& it) const {
    return later(it.requestJSONBase64, CommandParserError::invalidRequestEncoding);
  }
  NativeExecution operator()(const c::SampleRecordingSystemAudio& it) const {
    return sampleSystemAudio(services, it.requestJSONBase64);
  }
  NativeExecution operator()(const c::List& it) const { return list(services, it.excludeParentApplication); }
  NativeExecution operator()(const c::Capture& it) const { return capture(services, it.requestJSONBase64); }
  NativeExecution operator()(const c::PrepareCapture& it) const {
    return prepareCapture(services, it.requestJSONBase64);
  }
  NativeExecution operator()(const c::Record& it) const { return record(services, it.requestJSONBase64); }
  NativeExecution operator()(const c::RecoverRecording& it) const {
    return recover(services, it.requestJSONBase64);
  }
  NativeExecution operator()(const c::InspectEditSource& it) const {
    return inspectEditSource(services, it.requestJSONBase64);
  }
  NativeExecution operator()(const c::AudioWaveform& it) const {
    return audioWaveform(services, it.requestJSONBase64);
  }
  NativeExecution operator()(const c::PrepareNarrationFile& it) const {
    (void)editInFile(services, it.path);
    later();
  }
  NativeExecution operator()(const c::TranscribeCaptions& it) const {
    (void)editInFile(services, it.path);
    later();
  }
  NativeExecution operator()(const c::ExportEdit& it) const {
    constexpr auto undecodable = VideoEditExportError::invalidRequest;
    return exportEdit(services,
                      decoded<VideoEditExportRequestDTO>(it.requestJSONBase64, undecodable).validated());
  }
  NativeExecution operator()(const c::ExportEditFile& it) const {
    return exportEdit(services, editInFile(services, it.path));
  }
  NativeExecution operator()(const c::ExportGIF& it) const {
    return later(it.requestJSONBase64, GifExportError::invalidRequest);
  }
  NativeExecution operator()(const c::Thumbnail& it) const {
    return later(it.requestJSONBase64, ThumbnailRequestError::invalidEncoding);
  }
  NativeExecution operator()(const c::Copy&) const { return later(); }
  NativeExecution operator()(const c::CopyFile&) const { return later(); }
  NativeExecution operator()(const c::Share&) const { return later(); }
  NativeExecution operator()(const c::TranslateText&) const { return later(); }
  NativeExecution operator()(const c::Status&) const {
    return preflighted(services.desktop.hasScreenCaptureAccess());
  }
  NativeExecution operator()(const c::MicrophoneStatus&) const {
    return answered(MicrophonePermissionService(services.captureAuthorization).status());
  }
  NativeExecution operator()(const c::RequestMicrophonePermission&) const {
    return requested(MicrophonePermissionService(services.captureAuthorization).request(),
                     serviceErrors::microphoneDenied);
  }
  NativeExecution operator()(const c::CameraStatus&) const {
    return answered(CameraPermissionService(services.captureAuthorization).status());
  }
  NativeExecution operator()(const c::RequestCameraPermission&) const {
    return requested(CameraPermissionService(services.captureAuthorization).request(),
                     serviceErrors::cameraDenied);
  }
  NativeExecution operator()(const c::InteractionPermissionStatus&) const {
    return preflighted(services.listenEvents.preflight());
  }
  NativeExecution operator()(const c::RequestInteractionPermission&) const {
    return answered(services.listenEvents.request() ? PermissionStatus::granted : PermissionStatus::denied);
  }
  NativeExecution operator()(const c::SpeechPermissionStatus&) const {
    return answered(SpeechPermissionService::status(services.speechAuthorization));
  }
  NativeExecution operator()(const c::RequestSpeechPermission&) const {
    return answered(services.requestSpeechPermission());
  }
  NativeExecution operator()(const c::RecordingInputDevices&) const { return inputDevices(services); }
  NativeExecution operator()(const c::RecordingAvailableBytes&) const { return availableBytes(services); }
};

} // namespace

NativeExecution NativeCLI::run(const std::vector<std::string>& arguments) const {
  try {
    return std::visit(Dispatch{services_}, CommandParser::parse(arguments));
  } catch (...) {
    const ErrorOutcome outcome = outcomeOf(std::current_exception());
    return encode(NativeResponse<OperationPayload>{.ok = false, .data = std::nullopt, .error = outcome.error},
                  outcome.exitCode);
  }
}

} // namespace tessarin
