#pragma once

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>

namespace tessarin {

// What else ends a session's control lines. Neither descriptor is owned, read or written; -1 is none.
struct ControlInputEnds {
  int signals = -1; // readable once the process has been asked to end
  int output = -1;  // of events; an error once nobody is left to read them
};

// The control lines of a session, read from a descriptor that is not owned and never closed here. Anyone
// can end it for the reader: that is how the session's one thread is woken.
class ControlInput {
 public:
  // Throws std::system_error when no wake descriptor can be had.
  explicit ControlInput(int descriptor, ControlInputEnds ends = {});
  ~ControlInput();
  ControlInput(const ControlInput&) = delete;
  ControlInput& operator=(const ControlInput&) = delete;

  // Waits for the next line and returns it without its line feed; a last fragment counts as a line. Nothing
  // at the end of input, which a failed read counts as, and from close() on, even with lines still unread. A
  // line beyond the control protocol's limit is returned as soon as that is known, cut off one byte behind
  // the limit, and is the last one. Behind one of the other ends, whole lines that have come before are
  // still returned, as far as one reading takes them. One thread at a time.
  std::optional<std::string> nextLine();

  // Ends the input for good and wakes the reader. Any thread, any number of times, never blocks.
  void close() noexcept;

 private:
  void wait();
  void receive();
  void endBehindWholeLines();
  std::optional<std::string> takeLine();

  const int descriptor_;
  const ControlInputEnds ends_;
  const int wakeDescriptor_; // readable once closed
  std::atomic<bool> closed_ = false;

  // The reader's own.
  std::string buffer_;
  std::size_t scanned_ = 0; // bytes of the buffer known to hold no line feed
  bool ended_ = false;
};

} // namespace tessarin
