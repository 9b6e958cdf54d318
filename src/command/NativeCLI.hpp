#pragma once

#include "command/NativeResponse.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Capture.hpp"
#include "ports/Desktop.hpp"
#include "recording/RecordingModels.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessarin {

// What the commands need of the machine, filled by the composition root. Nothing here is opened before a
// command calls it; everything referred to outlives the dispatcher.
struct NativeServices {
  DesktopContent& desktop;
  StillCapturer& stills;
  PngWriter& images;
  ApplicationActivator& applications;
  Sleeper sleep;
  std::int32_t parentProcessIdentifier; // the host
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
