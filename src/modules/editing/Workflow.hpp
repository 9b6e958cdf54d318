#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

namespace tessarin::editing {

// What the threads of one export wait by. The first failure of any of them ends them all: from then on nobody
// waits any more. Any thread.
class Workflow {
 public:
  // Later ones are dropped: they are consequences of the first.
  void fail(std::exception_ptr failure) {
    const std::lock_guard lock(mutex_);
    if (!failure_)
      failure_ = std::move(failure);
    changed_.notify_all();
  }
  bool hasFailed() {
    const std::lock_guard lock(mutex_);
    return failure_ != nullptr;
  }
  void rethrow() {
    const std::lock_guard lock(mutex_);
    if (failure_)
      std::rethrow_exception(failure_);
  }

  // Runs the change as soon as the condition holds, both under the lock. False, without the change, once the
  // work has failed.
  template<class Condition, class Change> bool when(const Condition& condition, const Change& change) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return failure_ || condition(); });
    if (failure_)
      return false;
    change();
    changed_.notify_all();
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::exception_ptr failure_; // under the mutex, as what lines hold
};

// A line of bounded length between threads. The workflow outlives it.
template<class Item> class BoundedLine {
 public:
  BoundedLine(Workflow& workflow, std::size_t most) : workflow_(workflow), most_(most) {}

  // Waits for room. False once the work has failed.
  bool push(Item item) {
    return workflow_.when([&] { return items_.size() < most_; }, [&] { items_.push_back(std::move(item)); });
  }
  // Nothing more will be pushed.
  void close() {
    workflow_.when([] { return true; }, [&] { isClosed_ = true; });
  }
  // Waits for an item. Nothing at the end of a closed line, and once the work has failed.
  std::optional<Item> pop() {
    std::optional<Item> item;
    workflow_.when([&] { return isClosed_ || !items_.empty(); },
                   [&] {
                     if (items_.empty())
                       return;
                     item = std::move(items_.front());
                     items_.pop_front();
                   });
    return item;
  }

 private:
  Workflow& workflow_;
  const std::size_t most_;
  // Under the workflow's lock.
  std::deque<Item> items_;
  bool isClosed_ = false;
};

} // namespace tessarin::editing
