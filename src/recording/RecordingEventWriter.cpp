#include "recording/RecordingEventWriter.hpp"

#include "base/FileSystem.hpp"

#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace tessarin {

namespace {

void waitUntilWritable(int descriptor) {
  pollfd entry{descriptor, POLLOUT, 0};
  if (poll(&entry, 1, -1) < 0 && errno != EINTR)
    throw FileFailure(FileOperation::write, errno);
}

void writeWhole(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written >= 0)
      bytes.remove_prefix(static_cast<std::size_t>(written));
    else if (errno == EAGAIN || errno == EWOULDBLOCK)
      waitUntilWritable(descriptor);
    else if (errno != EINTR)
      throw FileFailure(FileOperation::write, errno);
  }
}

} // namespace

OutputSink descriptorSink(int descriptor) {
  return [descriptor](std::string_view bytes) { writeWhole(descriptor, bytes); };
}

RecordingEventWriter::RecordingEventWriter(OutputSink output) : output_(std::move(output)) {}

void RecordingEventWriter::write(const RecordingEvent& event) {
  const std::string line = event.encodedLine();
  const std::lock_guard guard(lock_);
  output_(line);
}

} // namespace tessarin
