#include "desktop/CapturePreparationService.hpp"

#include "base/FileSystem.hpp"
#include "base/HostClock.hpp"
#include "base/SafeFile.hpp"

#include <algorithm>

namespace tessarin {

namespace {

double millisecondsBetween(MediaTime start, MediaTime end) {
  return static_cast<double>(end.value() - start.value()) / 1e6; // host times are in nanoseconds
}

CaptureRequestDTO requestFor(const DisplayInfoDTO& display, const std::string& outputPath) {
  return {.kind = CaptureKind::display,
          .displayID = display.id,
          .windowID = std::nullopt,
          .rectPoints = display.framePoints,
          .outputPath = outputPath,
          .excludeParentApplication = false};
}

} // namespace

CapturePreparationPayload CapturePreparationService::prepare(const CapturePreparationRequest& request) const {
  const std::string directory = request.validatedDirectory(ports_.files);
  const MediaTime start = ports_.clock.now();
  ContentSnapshot snapshot = ContentService(ports_.capture.desktop).load();
  const std::size_t displayCount = snapshot.payload.displays.size();
  if (displayCount == 0 || displayCount > mostDisplays)
    throw serviceErrors::contentUnavailable();
  const MediaTime discovered = ports_.clock.now();

  CapturePreparationPayload payload;
  payload.captures = captures(snapshot, directory);
  payload.context = std::move(snapshot.payload);
  std::erase_if(payload.context.windows, [this](const WindowInfoDTO& window) {
    return window.ownerPID == ports_.parentProcessIdentifier();
  });
  payload.discoveryMs = millisecondsBetween(start, discovered);
  payload.captureMs = millisecondsBetween(discovered, ports_.clock.now());
  return payload;
}

std::vector<PreparedDisplayCapture> CapturePreparationService::captures(const ContentSnapshot& snapshot,
                                                                        const std::string& directory) const {
  const CaptureService service(ports_.capture, ports_.parentProcessIdentifier());
  const std::vector<DisplayInfoDTO>& displays = snapshot.payload.displays;
  std::vector<PreparedDisplayCapture> result;
  result.reserve(displays.size());
  for (std::size_t i = 0; i < displays.size(); ++i) {
    const std::string file = std::string(directory).append("/").append(std::to_string(i));
    const std::string pendingPath = file + ".pending.png";
    CapturedImagePayload image = service.capture(requestFor(displays[i], pendingPath), snapshot);
    TemporaryFile pending(ports_.files, pendingPath);
    image.path = file + ".png";
    ports_.files.renameExclusive(pending.path(), image.path);
    pending.keep();
    result.push_back({displays[i].id, std::move(image)});
  }
  return result;
}

} // namespace tessarin
