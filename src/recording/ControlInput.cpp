#include "recording/ControlInput.hpp"

#include "recording/RecordingProtocol.hpp"

#include <array>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tessarin {

namespace {

constexpr std::size_t maximumLineBytes = RecordingControlCommand::maximumLineBytes;
// A line of the largest size and its line feed; also what a line that is too long is cut to.
constexpr std::size_t bufferLimit = maximumLineBytes + 1;

int makeWakeDescriptor() {
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0)
    throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

} // namespace

ControlInput::ControlInput(int descriptor, ControlInputEnds ends)
    : descriptor_(descriptor), ends_(ends), wakeDescriptor_(makeWakeDescriptor()) {}

ControlInput::~ControlInput() {
  ::close(wakeDescriptor_);
}

void ControlInput::close() noexcept {
  closed_ = true;
  const std::uint64_t one = 1;
  // Fails only when the counter is full, and then the reader is awake already.
  [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor_, &one, sizeof one);
}

std::optional<std::string> ControlInput::nextLine() {
  while (!closed_) {
    if (std::optional<std::string> line = takeLine())
      return line;
    if (ended_)
      return std::nullopt;
    wait();
  }
  return std::nullopt;
}

std::optional<std::string> ControlInput::takeLine() {
  const std::size_t lineFeed = buffer_.find('\n', scanned_);
  if (lineFeed != std::string::npos) {
    std::string line = buffer_.substr(0, lineFeed);
    buffer_.erase(0, lineFeed + 1);
    scanned_ = 0;
    return line;
  }
  scanned_ = buffer_.size();
  if (buffer_.size() >= bufferLimit)
    ended_ = true;
  else if (!ended_ || buffer_.empty())
    return std::nullopt;
  scanned_ = 0;
  return std::exchange(buffer_, {});
}

// Returns with more bytes, or with the end of them.
void ControlInput::wait() {
  std::array<pollfd, 4> entries{pollfd{descriptor_, POLLIN, 0}, pollfd{wakeDescriptor_, POLLIN, 0},
                                pollfd{ends_.signals, POLLIN, 0}, pollfd{ends_.output, 0, 0}};
  while (poll(entries.data(), entries.size(), -1) < 0)
    if (errno != EINTR) {
      ended_ = true;
      return;
    }
  const auto& [lines, wake, signals, output] = entries;
  if (wake.revents != 0)
    return;
  if (lines.revents != 0)
    receive();
  if (!ended_ && (signals.revents != 0 || output.revents != 0))
    endBehindWholeLines();
}

void ControlInput::receive() {
  const std::size_t held = buffer_.size();
  buffer_.resize(bufferLimit);
  ssize_t count = 0;
  do
    count = ::read(descriptor_, buffer_.data() + held, bufferLimit - held);
  while (count < 0 && errno == EINTR);
  buffer_.resize(held + static_cast<std::size_t>(count > 0 ? count : 0));
  const bool wouldBlock = count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  if (count <= 0 && !wouldBlock)
    ended_ = true;
}

// What else is buffered is a line that was still being written.
void ControlInput::endBehindWholeLines() {
  const std::size_t lineFeed = buffer_.rfind('\n');
  buffer_.erase(lineFeed == std::string::npos ? 0 : lineFeed + 1);
  scanned_ = 0;
  ended_ = true;
}

} // namespace tessarin
