#include "base/Diagnostics.hpp"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <mutex>
#include <poll.h>
#include <unistd.h>

namespace tessarin {

namespace {

// Keeps SIGPIPE of one write on this thread from ending the process.
class PipeSignalBlock {
 public:
  PipeSignalBlock() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &previous_);
  }
  ~PipeSignalBlock() {
    if (!wasPending_) {
      const timespec noWait{};
      while (sigtimedwait(&pipe_, nullptr, &noWait) == -1 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  PipeSignalBlock(const PipeSignalBlock&) = delete;
  PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

 private:
  sigset_t pipe_;
  sigset_t previous_;
  bool wasPending_ = false;
};

// Whether standard error takes a line within the time, or refuses it at once. A pipe that is writable takes
// PIPE_BUF bytes without blocking, which is more than any line has.
bool takesLine(int milliseconds) {
  pollfd entry{STDERR_FILENO, POLLOUT, 0};
  int count = 0;
  do
    count = poll(&entry, 1, milliseconds);
  while (count < 0 && errno == EINTR);
  return count != 0;
}

} // namespace

DiagnosticsLine& DiagnosticsLine::item(std::string_view key, std::string_view value) {
  text_ += ' ';
  text_ += key;
  text_ += '=';
  for (const char character : value) {
    const auto byte = static_cast<unsigned char>(character);
    text_ += byte <= 0x20 || byte == 0x7F ? '_' : character;
  }
  return *this;
}

void writeDiagnostics(const std::string& line) {
  static std::mutex mutex;
  static bool isFull = false; // since the line before, guarded by the mutex
  const std::lock_guard guard(mutex);
  isFull = !takesLine(isFull ? 0 : static_cast<int>(diagnosticsPatience.count()));
  if (isFull)
    return;
  const std::string whole = line + '\n';
  const PipeSignalBlock block;
  while (::write(STDERR_FILENO, whole.data(), whole.size()) == -1 && errno == EINTR) {
  }
}

} // namespace tessarin
