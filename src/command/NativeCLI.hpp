#pragma once

#include "base/SerialQueue.hpp"
#include "command/NativeResponse.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "editing/ExportProgress.hpp"
#include "model/Permission.hpp"
#include "ports/Capture.hpp"
#include "ports/Desktop.hpp"
#include "ports/Devices.hpp"
#include "ports/MediaWriting.hpp"
#include "ports/MovieEditing.hpp"
#include "ports/Permissions.hpp"
#include "recording/RecordingModels.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tessarin {

class FileSystem;
class HostClock;

// What the commands need of the machine, filled by the composition root. Nothing here is opened before a
// command calls it; everything referred to outlives the dispatcher.
struct NativeServices {
  DesktopContent& desktop;
  StillCapturer& stills;
  PngWriter& images;
  ApplicationActivator& applications;
  CaptureDevices& devices;
  CaptureAuthorization& captureAuthorization;
  SpeechAuthorization& speechAuthorization;
  ListenEventAccess& listenEvents;
  // Asks for the recognition of speech; in a test, without asking anybody.
  std::function<PermissionStatus()> requestSpeechPermission;
  FileSystem& files;
  const HostClock& clock;
  AudioReencoder& reencoder;
  MediaAssets& assets;
  MovieExporter& movies;
  ProgressOutput progress; // of exports
  // Is asked for when an export is to end early.
  std::function<std::stop_token()> stop;
  std::optional<std::string> cachesDirectory; // the user's, absolute
  std::string temporaryDirectory;             // absolute
  QueueFactory makeQueue;
  Sleeper sleep;
  // The process of the host, as it is at the moment.
  std::function<std::int32_t()> parentProcessIdentifier;
  // Records from standard input to standard output until the session ends; yields the exit status.
  std::function<std::int32_t(const RecordingRequestDTO&)> record;
};

// The switchboard: an argument vector becomes a command, the command a call of the one service that does
// the job, and its payload or failure one reply. Keeps no state between runs.
class NativeCLI {
 public:
  explicit NativeCLI(NativeServices services) : services_(std::move(services)) {}

  // The job of an argument vector without the program name, on the calling thread. Never throws: every
  // failure becomes a reply.
  NativeExecution run(const std::vector<std::string>& arguments) const;

 private:
  NativeServices services_;
};

} // namespace tessarin
