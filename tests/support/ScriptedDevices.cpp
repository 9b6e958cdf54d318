#include "support/ScriptedDevices.hpp"

#include <algorithm>
#include <span>
#include <utility>

namespace tessarin {

AudioSample steadySample(float value, std::size_t frameCount, MediaTime presentationTime) {
  constexpr std::size_t channelCount = 2;
  const auto samples = std::make_shared<std::vector<float>>(frameCount * channelCount, value);
  AudioSample sample;
  sample.pcm = {std::as_bytes(std::span<const float>(*samples)), PcmFormat::float32, channelCount,
                frameCount};
  sample.presentationTime = presentationTime;
  sample.owner = samples;
  return sample;
}

CameraFrame numberedCameraFrame(std::uint8_t number, std::int32_t width, std::int32_t height,
                                MediaTime presentationTime) {
  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(width) * 4;
  const auto pixels = std::make_shared<std::vector<std::uint8_t>>(
      static_cast<std::size_t>(stride) * static_cast<std::size_t>(height), number);
  return {
      {.view = {.data = pixels->data(), .width = width, .height = height, .stride = stride}, .owner = pixels},
      presentationTime};
}

// ---- A device

class ScriptedDevice::Handle final : public DeviceStream {
 public:
  explicit Handle(std::shared_ptr<ScriptedDevice> device) : device_(std::move(device)) {}
  ~Handle() override {
    device_->handleStop();
    const std::lock_guard lock(device_->lock_);
    device_->isDestroyed_ = true;
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  void start() override { device_->handleStart(); }
  void stop() override { device_->handleStop(); }

 private:
  const std::shared_ptr<ScriptedDevice> device_;
};

void ScriptedDevice::note(const std::string& what) const {
  log_(what + " " + name_);
}

void ScriptedDevice::handleStart() {
  note("start");
  if (refusesToStart)
    throw Failure<CaptureDeviceError>(*refusesToStart);
  {
    const std::lock_guard lock(lock_);
    ++startCount_;
    isRunning_ = true;
  }
  if (onStart)
    onStart();
}

// A device that has ended by itself is stopped once, too.
void ScriptedDevice::handleStop() {
  if (stopCount() > 0 || startCount() == 0)
    return;
  note("stop");
  if (onStop)
    onStop();
  const std::lock_guard lock(lock_);
  ++stopCount_;
  isRunning_ = false;
}

void ScriptedDevice::deliver(const AudioSample& sample) {
  const std::lock_guard lock(lock_);
  if (isRunning_)
    onSample_(sample);
}

void ScriptedDevice::deliver(const CameraFrame& frame) {
  const std::lock_guard lock(lock_);
  if (isRunning_)
    onFrame_(frame);
}

void ScriptedDevice::end() {
  const std::lock_guard lock(lock_);
  if (std::exchange(isRunning_, false))
    onEnd_();
}

bool ScriptedDevice::isRunning() const {
  const std::lock_guard lock(lock_);
  return isRunning_;
}

bool ScriptedDevice::isDestroyed() const {
  const std::lock_guard lock(lock_);
  return isDestroyed_;
}

std::size_t ScriptedDevice::startCount() const {
  const std::lock_guard lock(lock_);
  return startCount_;
}

std::size_t ScriptedDevice::stopCount() const {
  const std::lock_guard lock(lock_);
  return stopCount_;
}

// ---- The machine's devices

namespace {

bool contains(const std::vector<CaptureDevice>& list, const std::optional<std::string>& deviceID) {
  return std::any_of(list.begin(), list.end(), [&](const CaptureDevice& device) {
    return deviceID ? device.id == *deviceID : device.isDefault;
  });
}

std::string nameOf(ScriptedDevices::Source source) {
  switch (source) {
  case ScriptedDevices::Source::microphone:
    return "microphone";
  case ScriptedDevices::Source::camera:
    return "camera";
  case ScriptedDevices::Source::systemAudio:
    return "systemAudio";
  }
  return {};
}

} // namespace

std::vector<std::string> ScriptedDevices::calls() const {
  const std::lock_guard lock(log_->lock);
  return log_->calls;
}

std::vector<CaptureDevice> ScriptedDevices::devices(MediaKind kind) {
  if (!reachable)
    return {};
  return kind == MediaKind::audio ? microphoneList : cameraList;
}

std::shared_ptr<ScriptedDevice>
ScriptedDevices::makeDevice(Source source, const std::optional<std::string>& deviceID, bool exists,
                            const std::optional<CaptureDeviceError>& refusal, DeviceEndHandler onEnd) {
  auto device = std::make_shared<ScriptedDevice>();
  device->deviceID = deviceID;
  device->name_ = nameOf(source);
  device->log_ = [log = log_](const std::string& call) {
    const std::lock_guard lock(log->lock);
    log->calls.push_back(call);
  };
  device->onEnd_ = std::move(onEnd);
  device->note("open");
  if (!reachable || !exists)
    throw Failure<CaptureDeviceError>(CaptureDeviceError::unavailable);
  if (refusal)
    throw Failure<CaptureDeviceError>(*refusal);
  return device;
}

std::unique_ptr<DeviceStream> ScriptedDevices::opened(std::shared_ptr<ScriptedDevice> device, Source source) {
  if (prepare)
    prepare(*device, source);
  return std::make_unique<ScriptedDevice::Handle>(std::move(device));
}

std::unique_ptr<DeviceStream> ScriptedDevices::openMicrophone(const std::optional<std::string>& deviceID,
                                                              AudioSampleHandler onSample,
                                                              DeviceEndHandler onEnd) {
  auto device = makeDevice(Source::microphone, deviceID, contains(microphoneList, deviceID),
                           refusesMicrophone, std::move(onEnd));
  device->onSample_ = std::move(onSample);
  microphones.push_back(device);
  return opened(std::move(device), Source::microphone);
}

std::unique_ptr<DeviceStream> ScriptedDevices::openCamera(const std::optional<std::string>& deviceID,
                                                          CameraFrameHandler onFrame,
                                                          DeviceEndHandler onEnd) {
  auto device =
      makeDevice(Source::camera, deviceID, contains(cameraList, deviceID), refusesCamera, std::move(onEnd));
  device->onFrame_ = std::move(onFrame);
  cameras.push_back(device);
  return opened(std::move(device), Source::camera);
}

std::unique_ptr<DeviceStream> ScriptedDevices::openSystemAudio(AudioSampleHandler onSample,
                                                               DeviceEndHandler onEnd) {
  auto device =
      makeDevice(Source::systemAudio, std::nullopt, hasSystemAudio, refusesSystemAudio, std::move(onEnd));
  device->onSample_ = std::move(onSample);
  systemAudios.push_back(device);
  return opened(std::move(device), Source::systemAudio);
}

// ---- Authorization

namespace {

std::string nameOf(MediaKind kind) {
  return kind == MediaKind::audio ? "audio" : "video";
}

} // namespace

CaptureAuthorizationStatus ScriptedCaptureAuthorization::status(MediaKind kind) {
  calls.push_back("status " + nameOf(kind));
  return kind == MediaKind::audio ? audio : video;
}

bool ScriptedCaptureAuthorization::requestAccess(MediaKind kind) {
  calls.push_back("request " + nameOf(kind));
  return grants;
}

} // namespace tessarin
