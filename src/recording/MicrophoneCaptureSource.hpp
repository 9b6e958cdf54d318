#pragma once

#include "recording/CaptureSource.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessarin {

using MicrophoneTerminalState = CaptureSourceTerminalState;

// Runs the microphone for a recording session and hands each sample to whoever has set a handler, the
// writer of the current segment. Outlives segments: samples without a handler are thrown away. Idle, then
// running, then stopped or failed for good. Its errors are microphoneUnavailable and microphoneDenied.
class MicrophoneCaptureSource final : public CaptureSource {
 public:
  using SampleHandler = std::function<void(const AudioSample&)>;

  // Devices and authorization outlive the source. The failure handler is called once, when the running
  // microphone ends by itself, on a thread of the device; it must not block.
  MicrophoneCaptureSource(CaptureDevices& devices, CaptureAuthorization& authorization,
                          std::optional<std::string> deviceID, const QueueFactory& makeQueue, Sleeper sleep,
                          std::function<void()> failureHandler);
  // As stop().
  ~MicrophoneCaptureSource();

  // Returns when the first sample has come, or throws microphoneUnavailable after 40 rounds, 50 ms apart.
  void waitForFirstSample() { waitForFirstDelivery(); }

  // The queue "com.tessarin.microphone.samples", on which handlers are called.
  using CaptureSource::queue;
  // From the next sample on; refused (false) when the source has ended. Any thread.
  bool setSampleHandler(SampleHandler handler);
  // On the source's queue: no call is under way once it has returned.
  void clearSampleHandler();

 private:
  struct Sound;
  std::unique_ptr<DeviceStream> open(DeviceEndHandler onEnd) override;

  CaptureDevices& devices_;
  const std::optional<std::string> deviceID_; // absent: the default one
  const std::shared_ptr<Sound> sound_;
};

} // namespace tessarin
