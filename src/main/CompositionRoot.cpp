#include "main/CompositionRoot.hpp"

#include "backends/png/PngFileWriter.hpp"
#include "backends/posix/EncoderProbe.hpp"
#include "backends/posix/ModuleLoader.hpp"
#include "backends/posix/ModuleMediaFileWriterFactory.hpp"
#include "backends/x11/Activator.hpp"
#include "backends/x11/Connection.hpp"
#include "backends/x11/Discovery.hpp"
#include "backends/x11/StillCapture.hpp"
#include "backends/x11/Stream.hpp"
#include "base/Diagnostics.hpp"
#include "base/FileSystem.hpp"
#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "desktop/ContentService.hpp"
#include "recording/ControlInput.hpp"
#include "recording/RecordingEventWriter.hpp"
#include "recording/RecordingService.hpp"

#include <unistd.h>

#include <thread>

namespace tessarin {

struct CompositionRoot::Backends {
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

  std::int32_t record(const RecordingRequestDTO& request);
};

std::int32_t CompositionRoot::Backends::record(const RecordingRequestDTO& request) {
  ContentService content(*desktop);
  ControlInput input(STDIN_FILENO);
  RecordingEventWriter events(descriptorSink(STDOUT_FILENO));
  RecordingService service({.contentService = content,
                            .streams = *streams,
                            .media = media,
                            .files = machineFileSystem(),
                            .clock = clock,
                            .makeQueue = makeThreadQueue,
                            .diagnostics = writeDiagnostics,
                            // Nothing here watches the keyboard yet.
                            .hasListenEventAccess = [] { return false; }});
  return service.run(request, input, events);
}

CompositionRoot::CompositionRoot() : backends_(std::make_unique<Backends>()) {}

CompositionRoot::~CompositionRoot() = default;

NativeServices CompositionRoot::services() {
  return {.desktop = *backends_->desktop,
          .stills = *backends_->stills,
          .images = backends_->images,
          .applications = *backends_->applications,
          .sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); },
          .parentProcessIdentifier = ::getppid(),
          .record = [this](const RecordingRequestDTO& request) { return backends_->record(request); }};
}

} // namespace tessarin
