#pragma once

#include "backends/x11/InputKeyboard.hpp"
#include "backends/x11/InputRecord.hpp"
#include "backends/x11/InputRules.hpp"
#include "base/HostClock.hpp"
#include "ports/InteractionEvents.hpp"
#include "ports/SecureInput.hpp"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace tessarin::x11 {

// What a watch of the keyboard knows for others. Any thread.
struct KeyboardState {
  std::atomic<bool> isWatched = true; // false for good when the watch has ended
  std::atomic<bool> isTaken = true;
};

// Tells presses as a record of the server's input brings them, on a thread of its own. It ends quietly when
// the server is lost.
class InputWatch final : public InteractionMonitor {
 public:
  // Watches from here on. Scale: pixels per point. Clock and passwords outlive the watch. Throws
  // DesktopFailure, and std::system_error without a thread.
  InputWatch(const DisplayServer& server, double scale, const HostClock& clock, PasswordFocus& passwords,
             InteractionHandlers handlers);
  ~InputWatch() override;
  InputWatch(const InputWatch&) = delete;
  InputWatch& operator=(const InputWatch&) = delete;

  void stop() override { end(); }

  // Null when keys are not watched.
  const std::shared_ptr<KeyboardState>& keyboardState() const { return keyboardState_; }

 private:
  void end();
  void prepare();
  void run();
  int longestWait();
  void askWhenDue();
  void takeAll();
  bool takeNotices();
  void readButtonMapping();
  void handle(const RecordedElement& element);
  void tell(const xcb_button_press_event_t& event);
  void tell(RecordedKeyPress recorded);

  const double scale_;
  const HostClock& clock_;
  PasswordFocus& passwords_;
  const InteractionHandlers handlers_;

  // The thread's, once it runs.
  InputRecord record_; // but for cut()
  const ServerTimes times_;
  std::optional<InputKeyboard> keyboard_;
  MediaTime asksAt_;                        // host time; not numeric when nothing is to be asked
  std::vector<std::uint8_t> buttonMapping_; // logical numbers, the first for button 1

  bool isTelling_ = false; // from when the thread runs

  const std::shared_ptr<KeyboardState> keyboardState_;
  std::atomic<bool> isStopping_ = false;
  std::atomic<std::thread::id> threadID_;
  std::mutex mutex_;
  std::thread thread_; // guarded by mutex_
};

} // namespace tessarin::x11
