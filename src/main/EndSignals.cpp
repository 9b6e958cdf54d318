#include "main/EndSignals.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace tessarin::endSignals {

namespace {

// A blocked signal would be told even if it is ignored.
bool isIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

std::optional<int> hold() {
  sigset_t signals;
  sigemptyset(&signals);
  bool isEmpty = true;
  for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    if (!isIgnored(signal)) {
      sigaddset(&signals, signal);
      isEmpty = false;
    }
  if (isEmpty)
    return std::nullopt;
  const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor < 0)
    return std::nullopt;
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) {
    close(descriptor);
    return std::nullopt;
  }
  return descriptor;
}

} // namespace tessarin::endSignals
