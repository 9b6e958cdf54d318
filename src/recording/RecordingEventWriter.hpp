#pragma once

#include "recording/RecordingProtocol.hpp"

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

// Sends a session's events, one whole line each, from any thread.
class RecordingEventWriter {
 public:
  explicit RecordingEventWriter(OutputSink output);

  // Encodes outside the lock, so that nobody waits for it, and writes the line under the lock. Throws what
  // the encoding or the output throws, with the lock released.
  void write(const RecordingEvent& event);

 private:
  const OutputSink output_; // called with lock_ held
  std::mutex lock_;
};

} // namespace tessarin
