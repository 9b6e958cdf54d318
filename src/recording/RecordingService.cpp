#include "recording/RecordingService.hpp"

#include "base/SafeFile.hpp"
#include "recording/RecordingConfiguration.hpp"
#include "recording/RecordingContentFilter.hpp"
#include "recording/RecordingSession.hpp"

#include <memory>
#include <string>
#include <utility>

namespace tessarin {

namespace {

NativeErrorCode codeOf(RecordingRequestError error) {
  switch (error) {
  case RecordingRequestError::displayNotFound:
    return NativeErrorCode::displayNotFound;
  case RecordingRequestError::windowNotFound:
  case RecordingRequestError::windowChanged:
    return NativeErrorCode::windowNotFound;
  default:
    return NativeErrorCode::invalidRequest;
  }
}

ValidatedRecordingRequest validatedRequest(const RecordingRequestDTO& request,
                                           const CaptureContextPayload& context) {
  try {
    return request.validated(context.displays, context.windows);
  } catch (const Failure<RecordingRequestError>& failure) {
    throw NativeServiceError{codeOf(failure.value()), std::string(messageOf(failure.value())), true};
  }
}

// Refuses a directory that is none, or that holds an earlier recording, before anything is made in it.
void checkOutputDirectory(FileSystem& files, const RecordingSessionPaths& paths) {
  if (!isRealDirectory(files, paths.sessionDirectory))
    throw serviceErrors::recordingFailed();
  for (const std::string& output : {paths.finalOutput, paths.screenOutput, paths.cameraOutput,
                                    paths.systemAudioOutput, paths.microphoneOutput})
    if (exists(files, output))
      throw serviceErrors::recordingFailed();
}

// The camera's panel writes into the directory before it is looked at as a whole; through a link that would
// be another one.
void refuseLinkedDirectory(FileSystem& files, const RecordingSessionPaths& paths, std::string_view& stage) {
  const std::string_view stageBefore = std::exchange(stage, RecordingStage::prepareOutput);
  const std::optional<FileInfo> info = files.info(paths.sessionDirectory);
  if (info && info->kind == FileKind::symbolicLink)
    throw serviceErrors::recordingFailed();
  stage = stageBefore;
}

RecordingOverlayEnvironment overlayEnvironment(const RecordingEnvironment& environment) {
  return {.desktop = environment.desktop,
          .interactions = environment.interactions,
          .panels = environment.panels,
          .typesetter = environment.typesetter,
          .files = environment.files,
          .clock = environment.clock,
          .mainQueue = environment.mainQueue,
          .sleep = environment.sleep};
}

void showOverlays(RecordingOverlays& overlays, const RecordingSources& sources,
                  const RecordingRequestDTO& request, const RecordingConfigurationPlan& plan,
                  const std::function<void()>& failureHandler, std::string_view& stage) {
  if (CameraOverlaySource* const camera = sources.camera()) {
    stage = RecordingStage::cameraOverlay;
    overlays.showCamera(*camera, request, plan, failureHandler);
  }
  if (request.settings.recordKeyboardShortcuts.value_or(false))
    overlays.showShortcuts(plan.captureRect);
}

// Null when the settings ask for no trace. Observing, but not recording yet.
std::unique_ptr<InteractionEventRecorder> makeInteractionRecorder(const RecordingEnvironment& environment,
                                                                  const RecordingRequestDTO& request,
                                                                  const RecordingConfigurationPlan& plan,
                                                                  const StreamConfiguration& configuration,
                                                                  RecordingOverlays& overlays) {
  const RecordingSettingsDTO& settings = request.settings;
  if (!settings.recordsInteractionEvents())
    return nullptr;
  InteractionRecorderSetup setup{
      .outputDirectory = request.outputDirectory,
      .captureRect = plan.captureRect,
      .recordsCursor = settings.recordsCursorEvents(),
      .recordsClicks = settings.recordsClickEvents(),
      .recordsShortcuts = settings.recordKeyboardShortcuts.value_or(false),
      .cursorRenderedInSource = configuration.showsCursor,
      .shortcutHandler = [&overlays](const RecordingShortcutUpdate& update) { overlays.receive(update); }};
  auto recorder =
      std::make_unique<InteractionEventRecorder>(std::move(setup), environment.interactions,
                                                 environment.clock, environment.files, environment.makeQueue);
  recorder->startObserving();
  return recorder;
}

// A running session's failure is often a symptom, such as the closed input; throws the cause where a
// source, the monitor or the stream knows it.
void throwRootCause(RecordingHealthMonitor& health, const RecordingSources& sources,
                    const RecordingStreamStopDelegate& stopDelegate, CaptureKind kind) {
  if (const std::optional<NativeServiceError> error = health.terminalError())
    throw NativeServiceError(*error);
  sources.throwIfFailed();
  if (stopDelegate.stoppedWithError() && kind == CaptureKind::window)
    throw serviceErrors::windowClosedDuringRecording();
}

} // namespace

std::int32_t RecordingService::run(const RecordingRequestDTO& request, ControlInput& input,
                                   RecordingEventWriter& events) {
  std::string_view stage = RecordingStage::prepareRequest;
  NativeServiceError failure = serviceErrors::recordingFailed();
  try {
    runAvailable(request, input, events, stage);
    return 0;
  } catch (const NativeServiceError& error) {
    failure = error;
  } catch (const MediaUnavailable&) {
    failure = serviceErrors::codecUnavailable();
  } catch (...) {
    // No more is told to the host of a failure without a wire outcome of its own.
  }
  environment_.diagnostics(recordingFailedLine(stage, failure.code));
  try {
    events.write(
        {request.sessionID, RecordingEvent::Failed{{failure.code, failure.message, failure.recoverable}}});
  } catch (...) {
    // A host that has gone cannot be told.
  }
  return 1;
}

void RecordingService::runAvailable(const RecordingRequestDTO& request, ControlInput& input,
                                    RecordingEventWriter& events, std::string_view& stage) {
  const RecordingSettingsDTO& settings = request.settings;
  if (settings.recordKeyboardShortcuts.value_or(false) && !environment_.hasListenEventAccess())
    throw serviceErrors::interactionPermissionDenied();

  stage = RecordingStage::shareableContent;
  const ContentSnapshot snapshot = environment_.contentService.load();

  stage = RecordingStage::validateTarget;
  const ValidatedRecordingRequest validated = validatedRequest(request, snapshot.payload);
  ContentFilter filter = recordingContentFilter(validated, snapshot);
  const RecordingConfigurationPlan plan = RecordingConfigurationBuilder::plan(validated);
  const StreamConfiguration configuration =
      RecordingConfigurationBuilder::streamConfiguration(plan, settings);
  const auto stopDelegate = std::make_shared<RecordingStreamStopDelegate>(input);
  RecordingHealthMonitor health(environment_.clock, environment_.files, environment_.makeQueue);

  const auto endInput = [stopDelegate] { stopDelegate->stopReading(); };
  const RecordingSources sources(environment_, settings, endInput, stage);
  refuseLinkedDirectory(environment_.files, RecordingSessionPaths(request.outputDirectory), stage);
  RecordingOverlays overlays(overlayEnvironment(environment_));
  showOverlays(overlays, sources, request, plan, endInput, stage);
  if (!overlays.isEmpty() && !validated.window) {
    stage = RecordingStage::excludeRecordingOverlays;
    filter = excludingOverlays(std::move(filter), overlays.captureExclusionApplication());
  }

  stage = RecordingStage::prepareOutput;
  checkOutputDirectory(environment_.files, RecordingSessionPaths(request.outputDirectory));
  RecordingSegmentStore store(environment_.files, request.sessionID, request.outputDirectory);

  stage = RecordingStage::interactionRecorder;
  const auto interactions = makeInteractionRecorder(environment_, request, plan, configuration, overlays);
  auto stream = std::make_unique<RecordingStream>(environment_.streams, environment_.devices, filter,
                                                  configuration, stopDelegate, endInput);
  RecordingSession session({.environment = environment_,
                            .request = request,
                            .plan = plan,
                            .events = events,
                            .health = health,
                            .sources = sources,
                            .overlays = overlays,
                            .interactions = interactions.get(),
                            .store = store,
                            .stopDelegate = stopDelegate},
                           std::move(stream), stage);
  session.start();
  try {
    session.serveControlLines(input);
  } catch (...) {
    session.salvage();
    throwRootCause(health, sources, *stopDelegate, request.kind);
    throw;
  }
}

} // namespace tessarin
