#pragma once

#include "ports/Devices.hpp"
#include "ports/Permissions.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// So much sound of one value in both channels, float32 at 48000 frames a second.
AudioSample steadySample(float value, std::size_t frameCount, MediaTime presentationTime);

// A camera's picture whose every byte is the number.
CameraFrame numberedCameraFrame(std::uint8_t number, std::int32_t width, std::int32_t height,
                                MediaTime presentationTime);

class ScriptedDevices;

// A device that delivers what the test tells it to, on the thread on which it is told. Shared by the test
// and the stream that it stands for.
class ScriptedDevice {
 public:
  // The script. Turn it before the stream starts, or on the thread that starts and stops it.
  std::optional<CaptureDeviceError> refusesToStart;
  std::function<void()> onStart; // on the starting thread, when the device runs and before start returns
  std::function<void()> onStop;  // on the stopping thread, before the stop

  // To the stream's handler; nothing happens while it does not run.
  void deliver(const AudioSample& sample);
  void deliver(const CameraFrame& frame);
  // The device is unplugged: it runs no longer, and its end is told once.
  void end();

  // The log.
  std::optional<std::string> deviceID; // as asked for
  bool isRunning() const;
  bool isDestroyed() const; // the stream has gone
  std::size_t startCount() const;
  std::size_t stopCount() const;

 private:
  friend class ScriptedDevices;
  class Handle;

  void handleStart();
  void handleStop();
  void note(const std::string& what) const;

  std::string name_;
  std::function<void(const std::string&)> log_;
  AudioSampleHandler onSample_;
  CameraFrameHandler onFrame_;
  DeviceEndHandler onEnd_;

  // Held while a handler runs, so that a stop waits for it.
  mutable std::mutex lock_;
  bool isRunning_ = false;
  bool isDestroyed_ = false;
  std::size_t startCount_ = 0;
  std::size_t stopCount_ = 0;
};

// A machine's microphones, cameras and sound, as a test has them. At first one of each, the default.
class ScriptedDevices final : public CaptureDevices {
 public:
  enum class Source : std::uint8_t { microphone, camera, systemAudio };

  // The script.
  bool reachable = true; // else there are no devices, and none opens
  std::vector<CaptureDevice> microphoneList{{"microphone-1", "Microphone", true}};
  std::vector<CaptureDevice> cameraList{{"camera-1", "Camera", true}};
  bool hasSystemAudio = true;
  std::optional<CaptureDeviceError> refusesMicrophone; // when it is opened, whichever it is
  std::optional<CaptureDeviceError> refusesCamera;
  std::optional<CaptureDeviceError> refusesSystemAudio;
  // Prepares the script of each device that is opened.
  std::function<void(ScriptedDevice&, Source)> prepare;

  // The devices that were opened, in order.
  std::vector<std::shared_ptr<ScriptedDevice>> microphones;
  std::vector<std::shared_ptr<ScriptedDevice>> cameras;
  std::vector<std::shared_ptr<ScriptedDevice>> systemAudios;
  // "open microphone", "start camera", "stop systemAudio" ..., also what was refused; a stop that changes
  // nothing is left out.
  std::vector<std::string> calls() const;

  bool isReachable() override { return reachable; }
  std::vector<CaptureDevice> devices(MediaKind kind) override;
  std::unique_ptr<DeviceStream> openMicrophone(const std::optional<std::string>& deviceID,
                                               AudioSampleHandler onSample, DeviceEndHandler onEnd) override;
  std::unique_ptr<DeviceStream> openCamera(const std::optional<std::string>& deviceID,
                                           CameraFrameHandler onFrame, DeviceEndHandler onEnd) override;
  std::unique_ptr<DeviceStream> openSystemAudio(AudioSampleHandler onSample, DeviceEndHandler onEnd) override;

 private:
  std::shared_ptr<ScriptedDevice> makeDevice(Source source, const std::optional<std::string>& deviceID,
                                             bool exists, const std::optional<CaptureDeviceError>& refusal,
                                             DeviceEndHandler onEnd);
  std::unique_ptr<DeviceStream> opened(std::shared_ptr<ScriptedDevice> device, Source source);

  struct Log {
    std::mutex lock;
    std::vector<std::string> calls; // guarded by lock
  };
  const std::shared_ptr<Log> log_ = std::make_shared<Log>();
};

// What the session may do, as a test has it. Turn the script while nobody asks.
class ScriptedCaptureAuthorization final : public CaptureAuthorization {
 public:
  CaptureAuthorizationStatus audio = CaptureAuthorizationStatus::authorized;
  CaptureAuthorizationStatus video = CaptureAuthorizationStatus::authorized;
  bool grants = true; // the answer to every request

  std::vector<std::string> calls; // "status audio", "request video" ...

  CaptureAuthorizationStatus status(MediaKind kind) override;
  bool requestAccess(MediaKind kind) override;
};

} // namespace tessarin
