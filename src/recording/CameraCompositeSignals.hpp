#pragma once

#include "base/SerialQueue.hpp"
#include "model/Errors.hpp"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace tessarin {

// Where a segment's writer tells its owner that the first frame was written, or that it never will be. The
// first failure stays. Any thread; lives in a shared_ptr, since a timer may outlast the wait.
class CameraCompositeSignals : public std::enable_shared_from_this<CameraCompositeSignals> {
 public:
  void didStart();
  void didFail(const NativeServiceError& error);

  // Blocks until the writer has started. Throws the NativeServiceError that was told, also one told long
  // before, or recordingScreenStalled when the timeout passes first. The timeout runs as a timer of the
  // given queue, which must not be the calling thread's, nor one that what is waited for can keep busy.
  void waitUntilStarted(SerialQueue& timers, SerialQueue::Duration timeout);

 private:
  void didTimeOut();

  std::mutex mutex_; // guards all below
  std::condition_variable changed_;
  bool started_ = false;
  std::optional<NativeServiceError> failure_;
};

} // namespace tessarin
