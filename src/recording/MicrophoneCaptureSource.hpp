#pragma once

#include "base/SerialQueue.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Devices.hpp"
#include "ports/Permissions.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tessarin {

struct MicrophoneTerminalState {
  bool stopped = false;
  bool failedUnexpectedly = false;
};

// Runs the microphone for a recording session and hands each sample to whoever has set a handler, the
// writer of the current segment. Outlives segments: samples without a handler are thrown away. Idle, then
// running, then stopped or failed for good.
class MicrophoneCaptureSource {
 public:
  using SampleHandler = std::function<void(const AudioSample&)>;

  // Devices and authorization outlive the source. The failure handler is called once, when the running
  // microphone ends by itself, on a thread of the device; it must not block.
  MicrophoneCaptureSource(CaptureDevices& devices, CaptureAuthorization& authorization,
                          std::optional<std::string> deviceID, const QueueFactory& makeQueue, Sleeper sleep,
                          std::function<void()> failureHandler);
  // As stop().
  ~MicrophoneCaptureSource();
  MicrophoneCaptureSource(const MicrophoneCaptureSource&) = delete;
  MicrophoneCaptureSource& operator=(const MicrophoneCaptureSource&) = delete;

  // Returns when the microphone runs. Throws NativeServiceError microphoneUnavailable or microphoneDenied.
  void start();
  // Returns when the first sample has come, or throws microphoneUnavailable after 40 rounds of 50 ms.
  void waitForFirstSample();
  // On return no handler is under way and none will be called. Not on the source's queue.
  void stop();

  // Any thread.
  MicrophoneTerminalState terminalState() const;

  // The queue "com.tessarin.microphone.samples", on which handlers are called.
  SerialQueue& queue() { return *queue_; }
  // From the next sample on; refused (false) when the source has ended. Any thread.
  bool setSampleHandler(SampleHandler handler);
  // On the source's queue: no call is under way once it has returned.
  void clearSampleHandler();

 private:
  struct Shared; // what the device's thread, the queue and the owner's thread share under one lock
  const std::shared_ptr<Shared> shared_;
  CaptureDevices& devices_;
  CaptureAuthorization& authorization_;
  const std::optional<std::string> deviceID_;
  const Sleeper sleep_;
  const std::unique_ptr<SerialQueue> queue_;
  std::unique_ptr<DeviceStream> stream_; // the owner's thread
};

} // namespace tessarin
