#include "recording/CameraCompositeAudioLane.hpp"

#include "recording/RecordingWriterPolicy.hpp"

#include <algorithm>
#include <utility>

namespace tessarin {

CameraCompositeAudioLane::CameraCompositeAudioLane(RecordingAudioLane lane, AudioInput& input)
    : lane_(lane), input_(input) {}

std::optional<CameraCompositeFailure> CameraCompositeAudioLane::append(const AudioSample& sample,
                                                                       MediaTime epoch) {
  if (!sample.presentationTime.isNumeric() || sample.presentationTime < epoch)
    return std::nullopt;
  AudioSample normalized = sample;
  normalized.presentationTime = sample.presentationTime - epoch;
  const MediaTime time = normalized.presentationTime;
  if (!time.isNumeric() || time < MediaTime::zero() || (lastTime_.isNumeric() && time <= lastTime_))
    return failure("non-monotonic-audio");
  lastTime_ = time;
  if (!firstTime_.isNumeric())
    firstTime_ = time;

  // A sample never overtakes one that waits, even when the input has become ready meanwhile.
  if (isWaiting() || !input_.isReadyForMoreMediaData())
    return enqueue(normalized);
  if (!input_.append(normalized))
    return failure("append-audio");
  return std::nullopt;
}

std::optional<CameraCompositeFailure> CameraCompositeAudioLane::enqueue(const AudioSample& sample) {
  pending_.push_back(sample);
  const MediaTime queued = queuedDuration();
  maximumQueueMs_ = std::max(maximumQueueMs_, queued.wholeMilliseconds());
  if (queued > RecordingAudioQueuePolicy::maximumQueuedDuration)
    return CameraCompositeFailure{"audio-backpressure", serviceErrors::recordingFailed()};
  return std::nullopt;
}

// From the start of the first sample that waits to the end of the last.
MediaTime CameraCompositeAudioLane::queuedDuration() const {
  return pending_.back().presentationTime - pending_.front().presentationTime + pending_.back().duration();
}

std::optional<CameraCompositeFailure> CameraCompositeAudioLane::drain() {
  while (isWaiting() && input_.isReadyForMoreMediaData()) {
    const AudioSample sample = std::move(pending_.front());
    pending_.pop_front();
    if (!input_.append(sample))
      return failure("drain-audio");
  }
  return std::nullopt;
}

void CameraCompositeAudioLane::scheduleDrain(SerialQueue& queue, SerialQueue::Task drain) {
  if (!drainTimer_)
    drainTimer_ = queue.after(drainDelay, std::move(drain));
}

CameraCompositeFailure CameraCompositeAudioLane::failure(std::string_view stage) const {
  return {stage, lane_ == RecordingAudioLane::system ? serviceErrors::recordingFailed()
                                                     : serviceErrors::microphoneUnavailable()};
}

} // namespace tessarin
