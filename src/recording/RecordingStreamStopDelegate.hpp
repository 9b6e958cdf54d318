#pragma once

#include "ports/Capture.hpp"
#include "recording/ControlInput.hpp"

#include <mutex>

namespace tessarin {

// How any thread wakes the session's one thread: by ending its control input. Stands in for the stream's
// own end, and is what failing sources, the writer and the health monitor call. Any thread.
class RecordingStreamStopDelegate final : public ScreenStreamDelegate {
 public:
  // The input outlives the delegate.
  explicit RecordingStreamStopDelegate(ControlInput& input) : input_(input) {}

  void streamDidStopWithError() override;

  // Ends the session's control lines; again does nothing.
  void stopReading() noexcept;

  // Whether the stream ended by itself.
  bool stoppedWithError() const;

 private:
  ControlInput& input_; // has its own synchronisation
  mutable std::mutex lock_;
  bool stoppedWithError_ = false; // guarded by lock_
};

} // namespace tessarin
