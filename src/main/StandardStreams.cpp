#include "main/StandardStreams.hpp"

#include "base/DescriptorStreams.hpp"
#include "base/FileSystem.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tessarin::standardStreams {

namespace {

// As the parent had set it.
void (*inheritedAction)(int) = SIG_DFL;

} // namespace

void occupy() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
      // The lowest free number is this one, since those below it are open by now.
      (void)::open("/dev/null", descriptor == STDOUT_FILENO ? O_RDONLY : O_WRONLY);
}

void ignoreBrokenPipes() {
  inheritedAction = std::signal(SIGPIPE, SIG_IGN);
}

void writeReply(std::string_view reply) {
  std::signal(SIGPIPE, inheritedAction);
  try {
    const OutputSink output = descriptorSink(STDOUT_FILENO);
    output(reply);
    output("\n");
  } catch (const FileFailure&) {
    // The reply is lost; the exit status still tells the outcome.
  }
}

std::function<void(std::string_view)> terminal() {
  if (::isatty(STDERR_FILENO) != 1)
    return nullptr;
  // What cannot be shown is lost.
  return [](std::string_view text) { (void)!::write(STDERR_FILENO, text.data(), text.size()); };
}

} // namespace tessarin::standardStreams
