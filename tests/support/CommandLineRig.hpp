#pragma once

#include "base/FileSystem.hpp"
#include "base/Text.hpp"
#include "command/NativeCLI.hpp"

#include "support/FaultyFileSystem.hpp"
#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"
#include "support/ScriptedMovieEditing.hpp"
#include "support/ScriptedReencoder.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

inline constexpr std::int32_t parentProcess = 200; // the host

// A machine with one display, a window of the host and one of another application.
class ScriptedMachine final : public DesktopContent,
                              public StillCapturer,
                              public PngWriter,
                              public ApplicationActivator {
 public:
  bool hasAccess = true;
  int calls = 0;
  std::vector<RunningApplication> excludedFromPicture;
  FileSystem* files = nullptr; // where pictures appear, though empty

  bool hasScreenCaptureAccess() override {
    ++calls;
    return hasAccess;
  }
  ShareableContent content() override {
    ++calls;
    const RunningApplication editor{"org.editor", 100, "Editor"};
    const RunningApplication host{"org.host", parentProcess, "Host/1"};
    const auto window = [](std::uint32_t id, const RunningApplication& owner) {
      return ShareableWindow{.windowID = id,
                             .frame = {10, 10, 100, 100},
                             .title = std::nullopt,
                             .windowLayer = 0,
                             .isOnScreen = true,
                             .owningApplication = owner};
    };
    return {.displays = {{.displayID = 1, .frame = {0, 0, 640, 480}, .pointPixelScale = 1, .isMain = true}},
            .windows = {window(8, editor), window(9, host)},
            .applications = {editor, host},
            .windowList = std::nullopt};
  }
  double pointPixelScale(const ContentFilter&) override { return 1; }
  Picture captureImage(const ContentFilter& filter, const StillConfiguration& how) override {
    ++calls;
    excludedFromPicture = filter.excludedApplications;
    return {{nullptr, static_cast<std::int32_t>(how.width), static_cast<std::int32_t>(how.height), 0,
             PixelFormat::bgrx8},
            nullptr};
  }
  void write(const PictureView&, const std::string& path) override {
    ++calls;
    if (files)
      files->open(path, OpenMode::createTruncated);
  }
  std::optional<bool> isActive(std::int32_t) override { return true; }
  void activate(std::int32_t) override {}
};

// What its person has allowed.
class ScriptedPermissions final : public SpeechAuthorization, public ListenEventAccess {
 public:
  SpeechAuthorizationStatus speech = SpeechAuthorizationStatus::authorized;
  PermissionStatus speechAnswer = PermissionStatus::granted;
  bool mayListen = true;
  std::vector<std::string> calls;

  SpeechAuthorizationStatus status() override {
    calls.emplace_back("speech status");
    return speech;
  }
  SpeechAuthorizationStatus requestAuthorization() override {
    calls.emplace_back("speech request");
    return speech;
  }
  bool preflight() override {
    calls.emplace_back("listen preflight");
    return mayListen;
  }
  bool request() override {
    calls.emplace_back("listen request");
    return mayListen;
  }
};

// The dispatcher on a scripted machine.
class CommandLineRig : public testing::Test {
 protected:
  NativeExecution run(const std::vector<std::string>& arguments) {
    return NativeCLI({.desktop = machine,
                      .stills = machine,
                      .images = machine,
                      .applications = machine,
                      .devices = devices,
                      .captureAuthorization = authorization,
                      .speechAuthorization = permissions,
                      .listenEvents = permissions,
                      .requestSpeechPermission =
                          [this] {
                            permissions.calls.emplace_back("speech asked");
                            return permissions.speechAnswer;
                          },
                      .files = files,
                      .clock = clock,
                      .reencoder = reencoder,
                      .assets = assets,
                      .movies = movies,
                      .progress = {[this](const std::string& line) { diagnostics.push_back(line); }, nullptr},
                      .stop = [this] { return stop.get_token(); },
                      .cachesDirectory = directory.path(),
                      .temporaryDirectory = "/nowhere",
                      .makeQueue = scheduler.queueFactory(),
                      .sleep = [this](std::chrono::milliseconds) { whileAsleep(); },
                      .parentProcessIdentifier = [this] { return parent(); },
                      .record =
                          [this](const RecordingRequestDTO& request) {
                            recorded = request;
                            return recordStatus;
                          }})
        .run(arguments);
  }
  NativeExecution runWith(const std::string& command, std::string_view request) {
    return run({command, "--request-json", encodedBase64(request)});
  }

  static NativeExecution success(const std::string& data) {
    return {R"({"data":)" + data + R"(,"ok":true,"schemaVersion":1})", 0};
  }
  static NativeExecution failure(const std::string& code, const std::string& message, std::int32_t exitCode) {
    return {R"({"error":{"code":")" + code + R"(","message":")" + message +
                R"(","recoverable":true},"ok":false,"schemaVersion":1})",
            exitCode};
  }

  ScriptedMachine machine;
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  ScriptedPermissions permissions;
  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ScriptedReencoder reencoder;
  ScriptedMediaAssets assets;
  ScriptedMovieExporter movies;
  std::vector<std::string> diagnostics;
  std::stop_source stop;
  ManualClock clock;
  ManualScheduler scheduler{clock};
  std::function<void()> whileAsleep = [] {};
  std::function<std::int32_t()> parent = [] { return parentProcess; };
  std::optional<RecordingRequestDTO> recorded;
  std::int32_t recordStatus = 0;
};

} // namespace tessarin
