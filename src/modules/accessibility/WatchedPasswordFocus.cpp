#include "modules/accessibility/WatchedPasswordFocus.hpp"

#include "base/HostClock.hpp"
#include "modules/accessibility/FocusWatch.hpp"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

namespace tessarin::accessibility {

namespace {

int endLoop(sd_event_source* source, int, std::uint32_t, void*) {
  return sd_event_exit(sd_event_source_get_event(source), 0);
}

} // namespace

WatchedPasswordFocus::~WatchedPasswordFocus() {
  if (thread_.joinable()) {
    eventfd_write(stop_, 1);
    thread_.join();
  }
  if (stop_ >= 0)
    close(stop_);
}

void WatchedPasswordFocus::begin() {
  std::unique_lock lock(mutex_);
  if (!thread_.joinable()) {
    stop_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stop_ < 0)
      return;
    thread_ = std::thread([this] { run(); });
  }
  changed_.wait_for(lock, beginPatience, [this] { return isKnown_; });
}

void WatchedPasswordFocus::run() {
  pthread_setname_np(pthread_self(), "password-focus");
  sd_event* made = nullptr;
  const int isMade = sd_event_new(&made);
  const EventLoop loop(made);
  if (isMade >= 0 && sd_event_add_io(made, nullptr, stop_, EPOLLIN, endLoop, nullptr) >= 0) {
    FocusWatch watch(
        made, {.focus = [this](bool isFocused, bool isKnownPassword) { note(isFocused, isKnownPassword); },
               .known = [this] { tellKnown(); }});
    watch.start();
    sd_event_loop(made);
  }
  // Without the loop nothing would notice a change.
  note(false, false);
  tellKnown();
}

void WatchedPasswordFocus::note(bool isFocused, bool isKnownPassword) {
  if (std::exchange(isKnownPassword_, isKnownPassword) && !isKnownPassword)
    passwordLeftAt_ = MonotonicHostClock().now().convertedTo(MediaTime::nanosecondScale).value();
  isFocused_ = isFocused;
}

bool WatchedPasswordFocus::wasFocusedSince(MediaTime hostTime) {
  return isFocused_ || (hostTime.isNumeric() &&
                        hostTime.convertedTo(MediaTime::nanosecondScale).value() <= passwordLeftAt_);
}

void WatchedPasswordFocus::tellKnown() {
  const std::lock_guard lock(mutex_);
  isKnown_ = true;
  changed_.notify_all();
}

} // namespace tessarin::accessibility
