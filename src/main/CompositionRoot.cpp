#include "main/CompositionRoot.hpp"

#include "backends/pipewire/Devices.hpp"
#include "backends/png/PngFileWriter.hpp"
#include "backends/posix/EncoderProbe.hpp"
#include "backends/posix/ModuleAudioReencoder.hpp"
#include "backends/posix/ModuleDevicePortal.hpp"
#include "backends/posix/ModuleLoader.hpp"
#include "backends/posix/ModuleMediaFileWriterFactory.hpp"
#include "backends/posix/ModuleMovieEditing.hpp"
#include "backends/posix/ModulePasswordFocus.hpp"
#include "backends/posix/ModuleTypesetter.hpp"
#include "backends/posix/UserDirectories.hpp"
#include "backends/x11/Activator.hpp"
#include "backends/x11/Connection.hpp"
#include "backends/x11/Discovery.hpp"
#include "backends/x11/InteractionSource.hpp"
#include "backends/x11/ListenEventAccess.hpp"
#include "backends/x11/Panels.hpp"
#include "backends/x11/StillCapture.hpp"
#include "backends/x11/Stream.hpp"
#include "base/Diagnostics.hpp"
#include "base/FileSystem.hpp"
#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "desktop/ContentService.hpp"
#include "desktop/SessionCaptureAuthorization.hpp"
#include "desktop/SpeechPermissionService.hpp"
#include "main/SignalledStop.hpp"
#include "main/StandardStreams.hpp"
#include "recording/ControlInput.hpp"
#include "recording/RecordingEventWriter.hpp"
#include "recording/RecordingService.hpp"

#include <unistd.h>

#include <thread>

namespace tessarin {

namespace {

void sleep(std::chrono::milliseconds time) {
  std::this_thread::sleep_for(time);
}

} // namespace

struct CompositionRoot::Backends {
  Backends(EventQueue& queue, MainThreadMode mode, std::optional<int> endDescriptor)
      : mainQueue(queue), endSignals(endDescriptor) {
    if (mode == MainThreadMode::application)
      panels = x11::makePanelFactory(server, mainQueue);
  }

  EventQueue& mainQueue;
  const std::optional<int> endSignals;
  const MonotonicHostClock clock{};
  const std::shared_ptr<x11::DisplayServer> server = std::make_shared<x11::DisplayServer>();
  const std::unique_ptr<DesktopContent> desktop = x11::makeDesktopContent(server);
  const std::unique_ptr<StillCapturer> stills = x11::makeStillCapturer(server, clock);
  const std::unique_ptr<ApplicationActivator> applications = x11::makeApplicationActivator(server);
  const std::unique_ptr<ScreenStreamFactory> streams = x11::makeScreenStreamFactory(server, clock);
  png::PngFileWriter images{machineFileSystem()};
  ModuleLoader modules{moduleDirectories(), writeDiagnostics};
  EncoderProbe encoders{{.directories = moduleDirectories()}};
  ModuleMediaFileWriterFactory media{modules, machineFileSystem(),
                                     [this](const std::string& name) { return encoders.works(name); }};

  ModuleAudioReencoder reencoder{modules, machineFileSystem()};
  ModuleMediaAssets assets{modules, machineFileSystem()};
  ModuleMovieExporter movies{modules, machineFileSystem()};
  SignalledStop stop{endSignals};
  ModuleDevicePortal portal{modules};
  const std::unique_ptr<CaptureDevices> devices = pipewire::makeCaptureDevices();
  SessionCaptureAuthorization captureAuthorization{*devices, portal};
  LocalSpeechAuthorization speechAuthorization;
  const std::unique_ptr<ListenEventAccess> listenEvents = x11::makeListenEventAccess(server);
  ModulePasswordFocus passwords{modules};
  const std::unique_ptr<InteractionSource> interactions =
      x11::makeInteractionSource(server, clock, passwords);
  ModuleTypesetter typesetter{modules};
  std::unique_ptr<PanelFactory> panels; // null without windows

  std::int32_t record(const RecordingRequestDTO& request);
};

// A process that is to record runs in application mode.
std::int32_t CompositionRoot::Backends::record(const RecordingRequestDTO& request) {
  ContentService content(*desktop);
  ControlInput input(STDIN_FILENO, {.signals = endSignals.value_or(-1), .output = STDOUT_FILENO});
  RecordingEventWriter events(impatientDescriptorSink(STDOUT_FILENO, RecordingEventWriter::hostPatience));
  RecordingService service({.contentService = content,
                            .desktop = *desktop,
                            .streams = *streams,
                            .devices = *devices,
                            .authorization = captureAuthorization,
                            .media = media,
                            .reencoder = reencoder,
                            .interactions = *interactions,
                            .panels = *panels,
                            .typesetter = typesetter,
                            .files = machineFileSystem(),
                            .clock = clock,
                            .makeQueue = makeThreadQueue,
                            .mainQueue = mainQueue,
                            .sleep = sleep,
                            .diagnostics = writeDiagnostics,
                            .hasListenEventAccess = [this] { return listenEvents->preflight(); }});
  return service.run(request, input, events);
}

CompositionRoot::CompositionRoot(EventQueue& mainQueue, MainThreadMode mode, std::optional<int> endSignals)
    : backends_(std::make_unique<Backends>(mainQueue, mode, endSignals)) {}

CompositionRoot::~CompositionRoot() = default;

void CompositionRoot::warmUp() {
  (void)backends_->desktop->hasScreenCaptureAccess();
}

NativeServices CompositionRoot::services() {
  return {.desktop = *backends_->desktop,
          .stills = *backends_->stills,
          .images = backends_->images,
          .applications = *backends_->applications,
          .devices = *backends_->devices,
          .captureAuthorization = backends_->captureAuthorization,
          .speechAuthorization = backends_->speechAuthorization,
          .listenEvents = *backends_->listenEvents,
          .requestSpeechPermission =
              [this] { return SpeechPermissionService::request(backends_->speechAuthorization); },
          .files = machineFileSystem(),
          .clock = backends_->clock,
          .reencoder = backends_->reencoder,
          .assets = backends_->assets,
          .movies = backends_->movies,
          .progress = {writeDiagnostics, standardStreams::terminal()},
          .stop = [this] { return backends_->stop.token(); },
          .cachesDirectory = userCachesDirectory(),
          .temporaryDirectory = temporaryFilesDirectory(),
          .makeQueue = makeThreadQueue,
          .sleep = sleep,
          .parentProcessIdentifier = [] { return std::int32_t{::getppid()}; },
          .record = [this](const RecordingRequestDTO& request) { return backends_->record(request); }};
}

} // namespace tessarin
