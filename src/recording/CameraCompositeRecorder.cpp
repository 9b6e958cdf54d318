#include "recording/CameraCompositeRecorder.hpp"

#include "recording/RecordingProtocol.hpp"

#include <future>
#include <utility>

namespace tessarin {

namespace {

std::uint64_t elapsedMilliseconds(MediaTime from, MediaTime to) {
  return tessarin::elapsedMilliseconds(hostNanoseconds(from).value_or(0), hostNanoseconds(to).value_or(0));
}

} // namespace

// Takes the computer's sound on the capture queue, and hands it on without waiting for the writer.
class CameraCompositeRecorder::SystemAudioOutput final : public AudioSampleOutput {
 public:
  // The writer's queue outlives the capture queue.
  SystemAudioOutput(std::weak_ptr<CameraCompositeSegment> segment, SerialQueue& queue)
      : segment_(std::move(segment)), queue_(queue) {}

  void audioSample(const AudioSample& sample) override {
    queue_.async([segment = segment_, sample] {
      if (const auto self = segment.lock())
        self->systemAudioSample(sample);
    });
  }

 private:
  const std::weak_ptr<CameraCompositeSegment> segment_;
  SerialQueue& queue_;
};

CameraCompositeRecorder::CameraCompositeRecorder(const CameraCompositeSetup& setup,
                                                 const QueueFactory& makeQueue)
    : clock_(setup.clock), queue_(makeQueue("com.tessarin.recording.camera-compositor")),
      systemAudioCaptureQueue_(makeQueue("com.tessarin.recording.system-audio-capture")),
      segment_(std::make_shared<CameraCompositeSegment>(setup, *queue_)),
      systemAudioOutput_(setup.settings.systemAudio ? std::make_shared<SystemAudioOutput>(segment_, *queue_)
                                                    : nullptr),
      microphone_(setup.microphone) {}

CameraCompositeRecorder::~CameraCompositeRecorder() {
  queue_->sync([this] { segment_->shutDown(); });
}

void CameraCompositeRecorder::attach(RecordingStream& stream) {
  stream.addScreenOutput(segment_, *queue_);
  isScreenAttached_ = true;
  if (systemAudioOutput_) {
    stream.addAudioOutput(systemAudioOutput_, *systemAudioCaptureQueue_);
    isSystemAudioAttached_ = true;
  }
  if (microphone_ != nullptr)
    attachMicrophone();
}

// A microphone that has ended takes no handler. Its end is the session's to see to.
void CameraCompositeRecorder::attachMicrophone() {
  const std::weak_ptr<CameraCompositeSegment> segment = segment_;
  isMicrophoneAttached_ =
      microphone_->setSampleHandler([segment, &queue = *queue_](const AudioSample& sample) {
        queue.async([segment, sample] {
          if (const auto self = segment.lock())
            self->microphoneSample(sample);
        });
      });
}

// The order is what no sample slips through: sources first, then the queues on a sample's way, one behind
// the other.
RecordingDetachTiming CameraCompositeRecorder::detach(RecordingStream& stream) {
  RecordingDetachTiming timing;
  const MediaTime start = clock_.now();
  if (std::exchange(isMicrophoneAttached_, false))
    microphone_->queue().sync([this] { microphone_->clearSampleHandler(); });

  const MediaTime microphoneStopped = clock_.now();
  if (std::exchange(isScreenAttached_, false))
    stream.removeScreenOutput(segment_.get());
  if (std::exchange(isSystemAudioAttached_, false))
    stream.removeAudioOutput(systemAudioOutput_.get());

  const MediaTime outputsRemoved = clock_.now();
  systemAudioCaptureQueue_->sync([] {});

  const MediaTime audioDrained = clock_.now();
  queue_->sync([] {});

  timing.microphoneStopMs = elapsedMilliseconds(start, microphoneStopped);
  timing.outputRemovalMs = elapsedMilliseconds(microphoneStopped, outputsRemoved);
  timing.audioDrainMs = elapsedMilliseconds(outputsRemoved, audioDrained);
  timing.writerQueueDrainMs = elapsedMilliseconds(audioDrained, clock_.now());
  return timing;
}

// The timeout counts on the capture queue, which only ever hands samples on: the writer's own may be busy
// with the very picture that is waited for.
void CameraCompositeRecorder::waitUntilStarted(SerialQueue::Duration timeout) {
  segment_->signals()->waitUntilStarted(*systemAudioCaptureQueue_, timeout);
}

void CameraCompositeRecorder::finish() {
  // Held by the completion too: it may still be inside set_value() when the wait is over.
  const auto closed = std::make_shared<std::promise<void>>();
  queue_->sync([&] { segment_->finishWriting([closed] { closed->set_value(); }); });
  closed->get_future().wait();
  queue_->sync([this] { segment_->reportFinished(); });
}

void CameraCompositeRecorder::cancel() {
  queue_->sync([this] { segment_->cancel(); });
}

MediaTime CameraCompositeRecorder::recordedDuration() const {
  MediaTime duration;
  queue_->sync([&] { duration = segment_->recordedDuration(); });
  return duration;
}

std::optional<std::uint64_t> CameraCompositeRecorder::epochHostTimeNanoseconds() const {
  MediaTime epoch;
  queue_->sync([&] { epoch = segment_->epoch(); });
  return hostNanoseconds(epoch);
}

} // namespace tessarin
