#include "recording/RecordingStream.hpp"

#include <mutex>
#include <utility>

namespace tessarin {

// What the computer plays, on its way from the device to the one output.
class RecordingStream::Sound {
 public:
  Sound(CaptureDevices& devices, std::function<void()> onEnd) : devices_(devices), onEnd_(std::move(onEnd)) {}

  void add(std::weak_ptr<AudioSampleOutput> output, SerialQueue& queue) {
    const auto* const identity = output.lock().get();
    const std::lock_guard lock(mutex_);
    if (identity == nullptr || !output_.expired())
      throw CaptureFailure();
    identity_ = identity;
    output_ = std::move(output);
    queue_ = &queue;
  }

  void remove(const AudioSampleOutput* output) {
    const std::lock_guard lock(mutex_);
    if (output != identity_)
      return;
    identity_ = nullptr;
    output_.reset();
    queue_ = nullptr;
  }

  // Throws CaptureFailure with nothing left open.
  void start() {
    try {
      device_ = devices_.openSystemAudio([this](const AudioSample& sample) { deliver(sample); },
                                         [this] { ended(); });
      device_->start();
    } catch (const Failure<CaptureDeviceError>&) {
      device_.reset();
      throw CaptureFailure();
    }
  }

  void stop() {
    {
      const std::lock_guard lock(mutex_);
      hasEnded_ = true;
    }
    device_.reset();
  }

 private:
  // On the device's thread. The lock is held while the sample goes to the queue: none does so any more once
  // an output is removed.
  void deliver(const AudioSample& sample) {
    const std::lock_guard lock(mutex_);
    if (queue_ == nullptr)
      return;
    queue_->async([output = output_, sample] {
      if (const auto receiver = output.lock())
        receiver->audioSample(sample);
    });
  }

  // On the device's thread, which a stop waits for.
  void ended() {
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(hasEnded_, true))
        return;
    }
    onEnd_();
  }

  CaptureDevices& devices_;
  const std::function<void()> onEnd_;

  std::mutex mutex_; // guards the next four
  const AudioSampleOutput* identity_ = nullptr;
  std::weak_ptr<AudioSampleOutput> output_;
  SerialQueue* queue_ = nullptr;
  bool hasEnded_ = false; // by itself or by a stop

  // The owner's thread; last, so that it ends before what its handlers use.
  std::unique_ptr<DeviceStream> device_;
};

RecordingStream::RecordingStream(ScreenStreamFactory& screens, CaptureDevices& devices,
                                 const ContentFilter& filter, const StreamConfiguration& configuration,
                                 std::weak_ptr<ScreenStreamDelegate> delegate,
                                 std::function<void()> onAudioEnd)
    : screen_(screens.makeStream(filter, configuration, std::move(delegate))),
      sound_(configuration.capturesAudio ? std::make_unique<Sound>(devices, std::move(onAudioEnd))
                                         : nullptr) {}

RecordingStream::~RecordingStream() = default;

bool RecordingStream::capturesAudio() const {
  return sound_ != nullptr;
}

void RecordingStream::addScreenOutput(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue) {
  screen_->addScreenOutput(std::move(output), queue);
}

void RecordingStream::removeScreenOutput(const ScreenSampleOutput* output) {
  screen_->removeScreenOutput(output);
}

void RecordingStream::addAudioOutput(std::weak_ptr<AudioSampleOutput> output, SerialQueue& queue) {
  if (!sound_)
    throw CaptureFailure();
  sound_->add(std::move(output), queue);
}

void RecordingStream::removeAudioOutput(const AudioSampleOutput* output) {
  if (sound_)
    sound_->remove(output);
}

void RecordingStream::startCapture() {
  if (sound_)
    sound_->start();
  try {
    screen_->startCapture();
  } catch (...) {
    if (sound_)
      sound_->stop();
    throw;
  }
}

void RecordingStream::stopCapture() {
  if (sound_)
    sound_->stop();
  screen_->stopCapture();
}

} // namespace tessarin
