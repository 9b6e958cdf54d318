#pragma once

#include "base/EventLoop.hpp"

#include <cstdint>
#include <optional>

namespace tessarin {

// The queue of the main thread, which runs it while the job is on a thread of its own: what has to be done
// there, and the windows of our own.
class MainLoop final : public EventLoop {
 public:
  // Ends the loop once the work handed over before has been done. The first exit code counts. Any thread.
  void stop(std::int32_t exitCode);

  // Runs on the main thread until stopped; yields the exit code. Once.
  std::int32_t run();

 private:
  std::optional<std::int32_t> exitCode_; // the main thread's own
};

} // namespace tessarin
