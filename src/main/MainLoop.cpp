#include "main/MainLoop.hpp"

#include <utility>

namespace tessarin {

void MainLoop::post(std::function<void()> work) {
  const std::lock_guard guard(lock_);
  work_.push_back(std::move(work));
  changed_.notify_one();
}

void MainLoop::stop(std::int32_t exitCode) {
  post([this, exitCode] { exitCode_ = exitCode; });
}

std::int32_t MainLoop::run() {
  while (!exitCode_) {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return !work_.empty(); });
    const auto work = std::move(work_.front());
    work_.pop_front();
    guard.unlock();
    work();
  }
  return *exitCode_;
}

} // namespace tessarin
