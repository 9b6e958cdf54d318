#pragma once

#include "base/BackgroundTask.hpp"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// Pieces of work that run at the same time, each on a queue of its own. What they use outlives the group.
// For one owner's thread.
class ParallelTasks {
 public:
  explicit ParallelTasks(QueueFactory makeQueue) : makeQueue_(std::move(makeQueue)) {}
  // Gives up what has not begun and waits for the rest.
  ~ParallelTasks() { giveUp(); }
  ParallelTasks(const ParallelTasks&) = delete;
  ParallelTasks& operator=(const ParallelTasks&) = delete;

  // Begins at once.
  void start(const std::string& label, std::function<void()> work) {
    tasks_.push_back(std::make_unique<Task>(makeQueue_, label, [this, work = std::move(work)] {
      if (!isGivenUp_)
        work();
      return true;
    }));
  }

  // Waits for all in the order in which they were started, and throws the first failure in that order. It
  // ends the others: what has not begun by then never does, and what is under way, which cannot be
  // interrupted, is waited for.
  void join() {
    try {
      for (const std::unique_ptr<Task>& task : tasks_)
        task->get();
    } catch (...) {
      giveUp();
      throw;
    }
    tasks_.clear();
  }

 private:
  using Task = BackgroundTask<bool>;

  void giveUp() {
    isGivenUp_ = true;
    tasks_.clear();
  }

  const QueueFactory makeQueue_;
  std::atomic<bool> isGivenUp_ = false;
  std::vector<std::unique_ptr<Task>> tasks_;
};

} // namespace tessarin
