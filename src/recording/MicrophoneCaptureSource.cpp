#include "recording/MicrophoneCaptureSource.hpp"

#include <utility>

namespace tessarin {

struct MicrophoneCaptureSource::Sound final : CaptureSource::Shared {
  SampleHandler handler; // guarded by lock

  void receive(const AudioSample& sample) {
    SampleHandler receiver;
    {
      const std::lock_guard guard(lock);
      if (terminalState.stopped)
        return;
      hasDelivered = true;
      receiver = handler;
    }
    if (receiver)
      receiver(sample);
  }
};

MicrophoneCaptureSource::MicrophoneCaptureSource(CaptureDevices& devices, CaptureAuthorization& authorization,
                                                 std::optional<std::string> deviceID,
                                                 const QueueFactory& makeQueue, Sleeper sleep,
                                                 std::function<void()> failureHandler)
    : CaptureSource({.kind = MediaKind::audio,
                     .queueLabel = "com.tessarin.microphone.samples",
                     .unavailable = serviceErrors::microphoneUnavailable(),
                     .denied = serviceErrors::microphoneDenied()},
                    authorization, makeQueue, std::move(sleep), std::move(failureHandler),
                    std::make_shared<Sound>()),
      devices_(devices), deviceID_(std::move(deviceID)), sound_(std::static_pointer_cast<Sound>(shared())) {}

MicrophoneCaptureSource::~MicrophoneCaptureSource() {
  stop();
}

std::unique_ptr<DeviceStream> MicrophoneCaptureSource::open(DeviceEndHandler onEnd) {
  return devices_.openMicrophone(
      deviceID_,
      [sound = sound_, &queue = queue()](const AudioSample& sample) {
        queue.async([sound, sample] { sound->receive(sample); });
      },
      std::move(onEnd));
}

bool MicrophoneCaptureSource::setSampleHandler(SampleHandler handler) {
  const std::lock_guard guard(sound_->lock);
  if (sound_->terminalState.stopped)
    return false;
  sound_->handler = std::move(handler);
  return true;
}

void MicrophoneCaptureSource::clearSampleHandler() {
  const std::lock_guard guard(sound_->lock);
  sound_->handler = nullptr;
}

} // namespace tessarin
