#include "recording/CameraCompositeSignals.hpp"

namespace tessarin {

void CameraCompositeSignals::didStart() {
  const std::lock_guard lock(mutex_);
  started_ = true;
  changed_.notify_all();
}

void CameraCompositeSignals::didFail(const NativeServiceError& error) {
  const std::lock_guard lock(mutex_);
  if (!failure_)
    failure_ = error;
  changed_.notify_all();
}

void CameraCompositeSignals::didTimeOut() {
  const std::lock_guard lock(mutex_);
  if (!started_ && !failure_)
    failure_ = serviceErrors::recordingScreenStalled();
  changed_.notify_all();
}

void CameraCompositeSignals::waitUntilStarted(SerialQueue& timers, SerialQueue::Duration timeout) {
  const auto isDecided = [this] { return started_ || failure_.has_value(); };
  {
    const std::lock_guard lock(mutex_);
    if (failure_)
      throw NativeServiceError(*failure_);
    if (started_)
      return;
  }
  const std::unique_ptr<QueueTimer> timer =
      timers.after(timeout, [self = shared_from_this()] { self->didTimeOut(); });
  std::unique_lock lock(mutex_);
  changed_.wait(lock, isDecided);
  if (failure_)
    throw NativeServiceError(*failure_);
}

} // namespace tessarin
