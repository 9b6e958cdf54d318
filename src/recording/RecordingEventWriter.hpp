#pragma once

#include "recording/RecordingProtocol.hpp"

#include <chrono>
#include <functional>
#include <mutex>
#include <string_view>

namespace tessarin {

// Takes bytes whole, or throws.
using OutputSink = std::function<void(std::string_view bytes)>;

// Writes to a descriptor that is not owned: one call where the system takes the bytes whole, more only for
// what it left over. Waits where the descriptor would not block. Throws FileFailure. The process must
// ignore SIGPIPE for a reader that has gone to be a failure rather than the end.
OutputSink descriptorSink(int descriptor);

// The same for a reader that must keep up: one that takes nothing for that long counts as gone for good,
// which is the failure ETIMEDOUT of this call and, without another wait, of every later one. One thread at
// a time.
OutputSink impatientDescriptorSink(int descriptor, std::chrono::milliseconds patience);

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
