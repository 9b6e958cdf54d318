#pragma once

#include "base/SerialQueue.hpp"

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tessarin {

// One piece of work that runs on a queue of its own while its owner goes on. Work that nobody has waited
// for is waited for by the destructor, and its failure dropped.
template<class Result> class BackgroundTask {
 public:
  BackgroundTask(const QueueFactory& makeQueue, const std::string& label, std::function<Result()> work)
      : queue_(makeQueue(label)) {
    queue_->async([this, work = std::move(work)] {
      try {
        result_ = work();
      } catch (...) {
        failure_ = std::current_exception();
      }
    });
  }
  ~BackgroundTask() { wait(); }
  BackgroundTask(const BackgroundTask&) = delete;
  BackgroundTask& operator=(const BackgroundTask&) = delete;

  // Waits for the work, and returns what it returned or throws what it threw. The owner's thread.
  Result get() {
    wait();
    if (failure_)
      std::rethrow_exception(failure_);
    return *result_;
  }

 private:
  void wait() {
    queue_->sync([] {});
  }

  // Written on the queue, read behind it.
  std::optional<Result> result_;
  std::exception_ptr failure_;
  const std::unique_ptr<SerialQueue> queue_;
};

} // namespace tessarin
