#pragma once

#include "base/SerialQueue.hpp"
#include "support/ManualClock.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tessarin {

class ManualScheduler;

// A queue whose tasks and timers run only when a test says so, on the test's thread:
//
//   ManualClock clock;
//   ManualScheduler scheduler(clock);
//   Writer writer(scheduler.queueFactory(), clock);
//   scheduler.runPending();
//   scheduler.advance(500ms);
//
// Tasks may be handed over on any thread. sync() runs what this queue was handed before, and then the task,
// at once on the caller's thread; it waits for a task of this queue that runs on another thread.
class ManualQueue final : public SerialQueue {
 public:
  // Runs the queue's own tasks, also those that they hand over, and drops its timers.
  ~ManualQueue() override;

  const std::string& label() const;
  // Tasks handed over and not yet run.
  std::size_t pendingCount() const;
  // Runs this queue's next task; false when there is none. What the task throws is thrown here.
  bool runOne();
  // Runs this queue's tasks until there are none, also those that they hand over.
  void runPending();

  void async(Task task) override;
  void sync(const Task& task) override;
  bool isCurrent() const override;
  [[nodiscard]] std::unique_ptr<QueueTimer> after(Duration delay, Task task) override;
  [[nodiscard]] std::unique_ptr<QueueTimer> every(Duration first, Duration interval, Task task) override;

 private:
  friend class ManualScheduler;
  struct State;
  struct Timer;
  class TimerHandle;
  explicit ManualQueue(std::shared_ptr<State> state);
  std::unique_ptr<QueueTimer> addTimer(Duration delay, Duration interval, Task task);
  std::shared_ptr<State> state_;
};

// Steps the queues that it made, in the order in which their tasks were handed over, and turns the clock from
// timer to timer. The queues and timers may outlive it, but then nothing steps them.
class ManualScheduler {
 public:
  using Duration = SerialQueue::Duration;

  // The clock outlives the scheduler and its queues.
  explicit ManualScheduler(ManualClock& clock);
  ~ManualScheduler();

  std::unique_ptr<ManualQueue> makeQueue(const std::string& label);
  // Makes queues of this scheduler; copies of it hold the scheduler's inner state, not the scheduler.
  QueueFactory queueFactory();

  ManualClock& clock();
  // Labels of every queue that was made, in order, also of queues that are gone.
  std::vector<std::string> labels() const;
  // Tasks that wait on all queues, and timers that are set.
  std::size_t pendingCount() const;
  std::size_t timerCount() const;

  // Runs the task that has waited longest; false when there is none. What it throws is thrown here.
  bool runOne();
  // Runs tasks until no queue has one; no timer fires.
  void runPending();
  // Runs what is pending, then turns the clock onward from timer to timer: at each due time, the timers due
  // fire in the order in which they were set, and everything that they lead to runs. Ends at exactly `by`
  // later.
  void advance(Duration by);

 private:
  friend class ManualQueue;
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

} // namespace tessarin
