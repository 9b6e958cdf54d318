#include "recording/CaptureSource.hpp"

#include <chrono>
#include <utility>

namespace tessarin {

namespace {

constexpr int deliveryRounds = 40;
constexpr std::chrono::milliseconds deliveryInterval(50);

} // namespace

CaptureSource::CaptureSource(Character character, CaptureAuthorization& authorization,
                             const QueueFactory& makeQueue, Sleeper sleep,
                             std::function<void()> failureHandler, std::shared_ptr<Shared> shared)
    : character_(std::move(character)), authorization_(authorization), sleep_(std::move(sleep)),
      failureHandler_(std::move(failureHandler)), shared_(std::move(shared)),
      queue_(makeQueue(character_.queueLabel)) {}

void CaptureSource::start() {
  if (authorization_.status(character_.kind) == CaptureAuthorizationStatus::denied)
    throw NativeServiceError(character_.denied);
  try {
    stream_ = open([shared = shared_, failureHandler = failureHandler_] {
      if (endOnce(*shared, true))
        failureHandler();
    });
    stream_->start();
  } catch (const Failure<CaptureDeviceError>& failure) {
    stop();
    throw NativeServiceError(failure.value() == CaptureDeviceError::denied ? character_.denied
                                                                           : character_.unavailable);
  }
}

void CaptureSource::stop() {
  endOnce(*shared_, false);
  if (stream_)
    stream_->stop();
  queue_->sync([] {});
}

CaptureSourceTerminalState CaptureSource::terminalState() const {
  const std::lock_guard lock(shared_->lock);
  return shared_->terminalState;
}

void CaptureSource::waitForFirstDelivery() {
  for (int round = 0; round < deliveryRounds; ++round) {
    if (round > 0)
      sleep_(deliveryInterval);
    const std::lock_guard lock(shared_->lock);
    if (shared_->terminalState.stopped)
      break;
    if (shared_->hasDelivered)
      return;
  }
  throw NativeServiceError(character_.unavailable);
}

bool CaptureSource::endOnce(Shared& shared, bool failed) {
  const std::lock_guard lock(shared.lock);
  if (shared.terminalState.stopped)
    return false;
  shared.terminalState = {true, failed};
  shared.clearLocked();
  return true;
}

} // namespace tessarin
