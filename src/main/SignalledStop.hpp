#pragma once

#include <optional>
#include <stop_token>
#include <thread>

namespace tessarin {

// A request to stop that is made once a descriptor is readable, as endSignals::hold() yields it: for work
// that is ended in order, with nothing half done left behind. Watches on a thread of its own from the first
// token on.
class SignalledStop {
 public:
  // The descriptor stays open. Nothing never stops.
  explicit SignalledStop(std::optional<int> descriptor) : descriptor_(descriptor) {}
  ~SignalledStop();
  SignalledStop(const SignalledStop&) = delete;
  SignalledStop& operator=(const SignalledStop&) = delete;

  // One thread at a time. Throws std::system_error where nothing can watch, since work that nobody can end is
  // better not begun.
  std::stop_token token();

 private:
  void watch();

  const std::optional<int> descriptor_;
  int wake_ = -1; // readable once nobody wants to know any more
  std::stop_source stop_;
  std::thread thread_;
};

} // namespace tessarin
