#pragma once

#include "ports/SecureInput.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace tessarin::accessibility {

// The focus as a thread of its own follows it on the accessibility bus. Any thread. The thread never waits
// for anybody but on its event loop, so that destroying takes no longer than a turn of it, whatever has
// become of the bus.
class WatchedPasswordFocus final : public PasswordFocus {
 public:
  // How long begin() waits at most; what is found later still counts.
  static constexpr std::chrono::milliseconds beginPatience{1500};

  WatchedPasswordFocus() = default;
  ~WatchedPasswordFocus() override;
  WatchedPasswordFocus(const WatchedPasswordFocus&) = delete;
  WatchedPasswordFocus& operator=(const WatchedPasswordFocus&) = delete;

  void begin() override;
  bool isFocused() override { return isFocused_; }
  bool wasFocusedSince(MediaTime hostTime) override;

 private:
  void note(bool isFocused, bool isKnownPassword);
  void run();
  void tellKnown();

  std::atomic<bool> isFocused_ = false;
  std::atomic<std::int64_t> passwordLeftAt_ = -1; // host time in nanoseconds, told before the focus is
  bool isKnownPassword_ = false;                  // the thread's
  int stop_ = -1; // an eventfd: set once by begin(), written by the destructor
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isKnown_ = false; // under the mutex, as is what follows
  std::thread thread_;
};

} // namespace tessarin::accessibility
