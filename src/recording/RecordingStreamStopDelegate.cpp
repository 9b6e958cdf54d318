#include "recording/RecordingStreamStopDelegate.hpp"

namespace tessarin {

void RecordingStreamStopDelegate::streamDidStopWithError() {
  {
    const std::lock_guard lock(lock_);
    stoppedWithError_ = true;
  }
  stopReading();
}

void RecordingStreamStopDelegate::stopReading() noexcept {
  input_.close();
}

bool RecordingStreamStopDelegate::stoppedWithError() const {
  const std::lock_guard lock(lock_);
  return stoppedWithError_;
}

} // namespace tessarin
