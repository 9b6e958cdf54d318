#include "recording/CameraCompositeRecorder.hpp"

#include "recording/RecordingProtocol.hpp"

#include <future>

namespace tessarin {

namespace {

std::uint64_t elapsedMilliseconds(MediaTime from, MediaTime to) {
  return tessarin::elapsedMilliseconds(hostNanoseconds(from).value_or(0), hostNanoseconds(to).value_or(0));
}

} // namespace

CameraCompositeRecorder::CameraCompositeRecorder(const CameraCompositeSetup& setup,
                                                 const QueueFactory& makeQueue)
    : clock_(setup.clock), queue_(makeQueue("com.tessarin.recording.camera-compositor")),
      segment_(std::make_shared<CameraCompositeSegment>(setup, *queue_)) {}

CameraCompositeRecorder::~CameraCompositeRecorder() {
  queue_->sync([this] { segment_->shutDown(); });
}

void CameraCompositeRecorder::attach(ScreenStream& stream) {
  stream.addScreenOutput(segment_, *queue_);
  isAttached_ = true;
}

RecordingDetachTiming CameraCompositeRecorder::detach(ScreenStream& stream) {
  RecordingDetachTiming timing;
  const MediaTime start = clock_.now();
  if (isAttached_)
    stream.removeScreenOutput(segment_.get());
  isAttached_ = false;
  const MediaTime removed = clock_.now();
  queue_->sync([] {});
  timing.outputRemovalMs = elapsedMilliseconds(start, removed);
  timing.writerQueueDrainMs = elapsedMilliseconds(removed, clock_.now());
  return timing;
}

void CameraCompositeRecorder::waitUntilStarted(SerialQueue::Duration timeout) {
  segment_->signals()->waitUntilStarted(*queue_, timeout);
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
