#pragma once

#include "model/Errors.hpp"
#include "recording/CameraOverlaySource.hpp"
#include "recording/RecordingOverlays.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/ManualQueue.hpp"
#include "support/RecordingRequests.hpp"
#include "support/ScriptedDevices.hpp"
#include "support/ScriptedInteractions.hpp"
#include "support/ScriptedPanels.hpp"
#include "support/ScriptedTypesetter.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessarin::testing {

// What it throws as a service does; nothing when it ends well.
inline std::optional<NativeServiceError> serviceErrorOf(const std::function<void()>& action) {
  try {
    action();
    return std::nullopt;
  } catch (const NativeServiceError& error) {
    return error;
  }
}

// The visible bytes of a picture, row by row.
inline std::vector<std::uint8_t> bytesOf(const Picture& picture) {
  std::vector<std::uint8_t> bytes;
  for (std::int32_t row = 0; row < picture.view.height; ++row) {
    const std::uint8_t* const start = picture.view.data + row * picture.view.stride;
    bytes.insert(bytes.end(), start, start + std::ptrdiff_t{picture.view.width} * 4);
  }
  return bytes;
}

// A desktop that lists what a test says, look by look.
class ListedDesktop final : public DesktopContent {
 public:
  std::function<std::vector<ShareableWindow>()> windows; // may throw
  int looks = 0;

  bool hasScreenCaptureAccess() override { return true; }
  ShareableContent content() override {
    ++looks;
    ShareableContent content;
    if (windows)
      content.windows = windows();
    return content;
  }
};

// Panels of a recording on scripted ports and real files, over the sample display. The camera runs.
class RecordingOverlayRig {
 public:
  RecordingOverlayRig() {
    request.outputDirectory = directory.path();
    plan.sourceRect = {0, 0, 1920, 1080};
    plan.captureRect = sampleDisplay().framePoints;
    plan.outputWidth = 1920;
    plan.outputHeight = 1080;
    source.start();
  }

  RecordingOverlayEnvironment environment() { return environment(*mainQueue); }
  RecordingOverlayEnvironment environment(SerialQueue& queue) {
    return {.desktop = desktop,
            .interactions = interactions,
            .panels = panels,
            .typesetter = typesetter,
            .files = files,
            .clock = clock,
            .mainQueue = queue,
            .sleep = [this](std::chrono::milliseconds time) { sleeps.push_back(time); }};
  }

  // A picture of the camera comes.
  void deliver(const CameraFrame& frame) {
    devices.cameras.at(0)->deliver(frame);
    scheduler.runPending();
  }
  void deliver(std::uint8_t number) { deliver(numberedCameraFrame(number, 64, 48, clock.now())); }

  ScriptedPanel& panel() { return *panels.panels.at(0); }
  std::vector<std::string> entries() { return files.list(directory.path(), 100).value(); }
  std::string layoutPath() const { return directory / "camera-layout.json"; }
  std::string layout() const { return directory.read("camera-layout.json"); }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ManualClock clock{std::chrono::seconds(10)};
  ManualScheduler scheduler{clock};
  std::unique_ptr<ManualQueue> mainQueue = scheduler.makeQueue("main");
  ScriptedInteractions interactions{clock};
  ScriptedPanelFactory panels;
  ScriptedTypesetter typesetter;
  ListedDesktop desktop;
  std::vector<std::chrono::milliseconds> sleeps; // between looks at the desktop
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  CameraOverlaySource source{
      devices, authorization, std::nullopt, clock, scheduler.queueFactory(), [](std::chrono::milliseconds) {},
      [] {}};
  RecordingRequestDTO request = sampleRequest();
  RecordingConfigurationPlan plan;
};

} // namespace tessarin::testing
