#pragma once

#include "command/MainThreadMode.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace tessarin {

// What the main thread does while the job runs on a thread of its own: it runs the work that has to be done
// there. In application mode that work may open windows.
class MainLoop {
 public:
  explicit MainLoop(MainThreadMode mode) : mode_(mode) {}

  MainThreadMode mode() const { return mode_; }

  // Hands over work for the main thread. Any thread.
  void post(std::function<void()> work);

  // Ends the loop once the work handed over before has been done. Any thread.
  void stop(std::int32_t exitCode);

  // Runs on the main thread until stopped; yields the exit code.
  std::int32_t run();

 private:
  const MainThreadMode mode_;

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> work_; // guarded by lock_

  std::optional<std::int32_t> exitCode_; // the main thread's own
};

} // namespace tessarin
