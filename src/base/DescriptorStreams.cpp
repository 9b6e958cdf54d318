#include "base/DescriptorStreams.hpp"

#include "base/FileSystem.hpp"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace tessarin {

namespace {

constexpr int forever = -1;
// A pipe that is writable takes this much without blocking.
constexpr std::size_t pieceBytes = PIPE_BUF;

void waitUntilWritable(int descriptor, int milliseconds) {
  pollfd entry{descriptor, POLLOUT, 0};
  int count = 0;
  do
    count = poll(&entry, 1, milliseconds);
  while (count < 0 && errno == EINTR);
  if (count < 0)
    throw FileFailure(FileOperation::write, errno);
  if (count == 0)
    throw FileFailure(FileOperation::write, ETIMEDOUT);
}

// Returns how many of the bytes the descriptor took, which may be none.
std::size_t writeSome(int descriptor, std::string_view bytes) {
  const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
  if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
    throw FileFailure(FileOperation::write, errno);
  return static_cast<std::size_t>(std::max<ssize_t>(written, 0));
}

void writeWhole(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    bytes.remove_prefix(writeSome(descriptor, bytes));
    if (!bytes.empty())
      waitUntilWritable(descriptor, forever);
  }
}

} // namespace

OutputSink descriptorSink(int descriptor) {
  return [descriptor](std::string_view bytes) { writeWhole(descriptor, bytes); };
}

OutputSink impatientDescriptorSink(int descriptor, std::chrono::milliseconds patience) {
  return [descriptor, patience, hasGone = false](std::string_view bytes) mutable {
    if (hasGone)
      throw FileFailure(FileOperation::write, ETIMEDOUT);
    try {
      while (!bytes.empty()) {
        waitUntilWritable(descriptor, static_cast<int>(patience.count()));
        bytes.remove_prefix(writeSome(descriptor, bytes.substr(0, pieceBytes)));
      }
    } catch (const FileFailure& failure) {
      hasGone = failure.errorNumber() == ETIMEDOUT;
      throw;
    }
  };
}

InputSource descriptorSource(int descriptor) {
  return [descriptor](std::span<char> into) {
    ssize_t count = 0;
    do
      count = ::read(descriptor, into.data(), into.size());
    while (count < 0 && errno == EINTR);
    if (count < 0)
      throw FileFailure(FileOperation::read, errno);
    return static_cast<std::size_t>(count);
  };
}

} // namespace tessarin
