#pragma once

#include "base/Diagnostics.hpp"
#include "base/FileSystem.hpp"
#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "desktop/ContentService.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Capture.hpp"
#include "ports/Desktop.hpp"
#include "ports/Devices.hpp"
#include "ports/InteractionEvents.hpp"
#include "ports/MediaWriting.hpp"
#include "ports/Panels.hpp"
#include "ports/Permissions.hpp"
#include "ports/Typesetting.hpp"

#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

namespace tessarin {

class ControlInput;
class RecordingEventWriter;
struct RecordingRequestDTO;

// What a recording needs of the machine. The composition root fills it; everything referred to outlives
// the service.
struct RecordingEnvironment {
  ContentService& contentService; // without exclusions
  DesktopContent& desktop;        // what the service looks at
  ScreenStreamFactory& streams;
  CaptureDevices& devices;
  CaptureAuthorization& authorization;
  MediaFileWriterFactory& media;
  AudioReencoder& reencoder;
  InteractionSource& interactions;
  PanelFactory& panels;
  TextTypesetter& typesetter;
  FileSystem& files;
  const HostClock& clock; // the clock of the stream's sample times
  QueueFactory makeQueue;
  SerialQueue& mainQueue; // the main thread, where panels live
  Sleeper sleep;          // the session's thread, while it waits for a device
  DiagnosticsSink diagnostics;
  // Whether this process may watch the keyboard; asks nobody. Any thread.
  std::function<bool()> hasListenEventAccess;
};

// Drives one recording from its request to its last event: brings everything up in a fixed order, serves
// control lines, and ends with exactly one of `completed`, `cancelled` and `failed`.
class RecordingService {
 public:
  explicit RecordingService(RecordingEnvironment environment) : environment_(std::move(environment)) {}

  // Records until the control lines end the session, on the calling thread, which must be none of the
  // session's queues. The input is closed from other threads when a source or the stream ends by itself.
  // Yields the process's exit status: 0 after `completed` or `cancelled`, 1 after `failed`. Never throws.
  std::int32_t run(const RecordingRequestDTO& request, ControlInput& input, RecordingEventWriter& events);

 private:
  // Throws on every failure and leaves in `failureStage` the step that it happened in.
  void runAvailable(const RecordingRequestDTO& request, ControlInput& input, RecordingEventWriter& events,
                    std::string_view& failureStage);

  RecordingEnvironment environment_;
};

} // namespace tessarin
