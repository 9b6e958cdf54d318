#include "main/SignalledStop.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace tessarin {

SignalledStop::~SignalledStop() {
  if (thread_.joinable()) {
    (void)eventfd_write(wake_, 1);
    thread_.join();
  }
  if (wake_ >= 0)
    close(wake_);
}

std::stop_token SignalledStop::token() {
  if (descriptor_ && !thread_.joinable()) {
    if (wake_ < 0)
      wake_ = eventfd(0, EFD_CLOEXEC);
    if (wake_ < 0)
      throw std::system_error(errno, std::generic_category());
    thread_ = std::thread([this] { watch(); });
  }
  return stop_.get_token();
}

void SignalledStop::watch() {
  std::array<pollfd, 2> descriptors{{{*descriptor_, POLLIN, 0}, {wake_, POLLIN, 0}}};
  while (poll(descriptors.data(), descriptors.size(), -1) < 0 && errno == EINTR) {
  }
  if ((descriptors[0].revents & POLLIN) != 0)
    stop_.request_stop();
}

} // namespace tessarin
