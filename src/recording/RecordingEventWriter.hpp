#pragma once

#include "base/DescriptorStreams.hpp"
#include "recording/RecordingProtocol.hpp"

#include <chrono>
#include <mutex>

namespace tessarin {

// Sends a session's events, one whole line each, from any thread.
class RecordingEventWriter {
 public:
  // How long a host may leave events unread once the pipe to it is full. A host that does so holds up the
  // health monitor, hence the watch over the disk, and every step of the session; within this time even the
  // fastest recording fits into what the monitor keeps free.
  static constexpr std::chrono::seconds hostPatience{10};

  explicit RecordingEventWriter(OutputSink output);

  // Encodes outside the lock, so that nobody waits for it, and writes the line under the lock. Throws what
  // the encoding or the output throws, with the lock released.
  void write(const RecordingEvent& event);

 private:
  const OutputSink output_; // called with lock_ held
  std::mutex lock_;
};

} // namespace tessarin
