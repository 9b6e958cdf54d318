#include "support/ManualQueue.hpp"

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace tessarin {

// Guarded by the mutex, but for the clock. Order of locks: a queue's `running`, then this one.
struct ManualScheduler::Shared {
  explicit Shared(ManualClock& handed) : clock(handed) {}

  struct Entry {
    std::shared_ptr<ManualQueue::State> queue;
    SerialQueue::Task task;
  };

  ManualClock& clock;
  mutable std::mutex mutex;
  std::deque<Entry> entries; // of all queues, in the order of handing over
  std::vector<std::weak_ptr<ManualQueue::Timer>> timers;
  std::vector<std::string> labels;

  // The task that has waited longest, of the one queue when it is given.
  std::optional<Entry> take(const ManualQueue::State* only);
  std::size_t count(const ManualQueue::State* only) const;
  bool runOne(const ManualQueue::State* only);
  // The timer that is due first, when that is not after the time.
  std::shared_ptr<ManualQueue::Timer> nextTimer(Duration until);
  std::unique_ptr<ManualQueue> makeQueue(const std::shared_ptr<Shared>& self, const std::string& label);
};

struct ManualQueue::State {
  std::shared_ptr<ManualScheduler::Shared> shared;
  std::string label;
  std::recursive_mutex running; // held while a task of this queue runs
  std::atomic<std::thread::id> runner;
  std::atomic<bool> isClosed = false;

  void run(const SerialQueue::Task& task) {
    const std::lock_guard lock(running);
    const std::thread::id outer = runner.exchange(std::this_thread::get_id());
    struct Restore {
      std::atomic<std::thread::id>& runner;
      std::thread::id outer;
      ~Restore() { runner = outer; }
    } restore{runner, outer};
    task();
  }
};

struct ManualQueue::Timer {
  std::shared_ptr<State> queue;
  Duration due{};
  Duration interval{}; // zero: once
  SerialQueue::Task task;
  bool isQueued = false; // guarded by the scheduler's mutex; a call waits on the queue
  std::atomic<bool> isCancelled = false;
};

class ManualQueue::TimerHandle final : public QueueTimer {
 public:
  explicit TimerHandle(std::shared_ptr<Timer> timer) : timer_(std::move(timer)) {}
  ~TimerHandle() override { timer_->isCancelled = true; }
  TimerHandle(const TimerHandle&) = delete;
  TimerHandle& operator=(const TimerHandle&) = delete;

  void cancel() override { timer_->isCancelled = true; }

 private:
  const std::shared_ptr<Timer> timer_;
};

std::optional<ManualScheduler::Shared::Entry> ManualScheduler::Shared::take(const ManualQueue::State* only) {
  const std::lock_guard lock(mutex);
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
    return only == nullptr || entry.queue.get() == only;
  });
  if (found == entries.end())
    return std::nullopt;
  Entry entry = std::move(*found);
  entries.erase(found);
  return entry;
}

std::size_t ManualScheduler::Shared::count(const ManualQueue::State* only) const {
  const std::lock_guard lock(mutex);
  return static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), [&](const Entry& entry) {
    return only == nullptr || entry.queue.get() == only;
  }));
}

bool ManualScheduler::Shared::runOne(const ManualQueue::State* only) {
  const std::optional<Entry> entry = take(only);
  if (entry)
    entry->queue->run(entry->task);
  return entry.has_value();
}

std::shared_ptr<ManualQueue::Timer> ManualScheduler::Shared::nextTimer(Duration until) {
  const std::lock_guard lock(mutex);
  std::shared_ptr<ManualQueue::Timer> next;
  std::erase_if(timers, [&](const std::weak_ptr<ManualQueue::Timer>& weak) {
    const auto timer = weak.lock();
    if (!timer || timer->isCancelled || timer->queue->isClosed)
      return true;
    if (!timer->isQueued && timer->due <= until && (!next || timer->due < next->due))
      next = timer;
    return false;
  });
  if (next)
    next->isQueued = true;
  return next;
}

std::unique_ptr<ManualQueue> ManualScheduler::Shared::makeQueue(const std::shared_ptr<Shared>& self,
                                                                const std::string& label) {
  const std::lock_guard lock(mutex);
  labels.push_back(label);
  auto state = std::make_shared<ManualQueue::State>();
  state->shared = self;
  state->label = label;
  return std::unique_ptr<ManualQueue>(new ManualQueue(std::move(state)));
}

ManualQueue::ManualQueue(std::shared_ptr<State> state) : state_(std::move(state)) {}

ManualQueue::~ManualQueue() {
  state_->isClosed = true;
  runPending();
}

const std::string& ManualQueue::label() const {
  return state_->label;
}

std::size_t ManualQueue::pendingCount() const {
  return state_->shared->count(state_.get());
}

bool ManualQueue::runOne() {
  return state_->shared->runOne(state_.get());
}

void ManualQueue::runPending() {
  while (runOne()) {
  }
}

void ManualQueue::async(Task task) {
  const std::lock_guard lock(state_->shared->mutex);
  state_->shared->entries.push_back({state_, std::move(task)});
}

void ManualQueue::sync(const Task& task) {
  if (isCurrent())
    return task();
  const std::lock_guard lock(state_->running);
  runPending();
  state_->run(task);
}

bool ManualQueue::isCurrent() const {
  return state_->runner == std::this_thread::get_id();
}

std::unique_ptr<QueueTimer> ManualQueue::after(Duration delay, Task task) {
  return addTimer(delay, Duration::zero(), std::move(task));
}

std::unique_ptr<QueueTimer> ManualQueue::every(Duration first, Duration interval, Task task) {
  return addTimer(first, std::max(interval, Duration(1)), std::move(task));
}

std::unique_ptr<QueueTimer> ManualQueue::addTimer(Duration delay, Duration interval, Task task) {
  auto timer = std::make_shared<Timer>();
  timer->queue = state_;
  timer->due = state_->shared->clock.elapsed() + delay;
  timer->interval = interval;
  timer->task = std::move(task);
  const std::lock_guard lock(state_->shared->mutex);
  state_->shared->timers.push_back(timer);
  return std::make_unique<TimerHandle>(std::move(timer));
}

ManualScheduler::ManualScheduler(ManualClock& clock) : shared_(std::make_shared<Shared>(clock)) {}
ManualScheduler::~ManualScheduler() = default;

std::unique_ptr<ManualQueue> ManualScheduler::makeQueue(const std::string& label) {
  return shared_->makeQueue(shared_, label);
}

QueueFactory ManualScheduler::queueFactory() {
  return [shared = shared_](const std::string& label) -> std::unique_ptr<SerialQueue> {
    return shared->makeQueue(shared, label);
  };
}

ManualClock& ManualScheduler::clock() {
  return shared_->clock;
}

std::vector<std::string> ManualScheduler::labels() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->labels;
}

std::size_t ManualScheduler::pendingCount() const {
  return shared_->count(nullptr);
}

std::size_t ManualScheduler::timerCount() const {
  const std::lock_guard lock(shared_->mutex);
  return static_cast<std::size_t>(
      std::count_if(shared_->timers.begin(), shared_->timers.end(), [](const auto& weak) {
        const auto timer = weak.lock();
        return timer && !timer->isCancelled && !timer->queue->isClosed;
      }));
}

bool ManualScheduler::runOne() {
  return shared_->runOne(nullptr);
}

void ManualScheduler::runPending() {
  while (runOne()) {
  }
}

void ManualScheduler::advance(Duration by) {
  const Duration end = clock().elapsed() + by;
  runPending();
  while (const std::shared_ptr<ManualQueue::Timer> timer = shared_->nextTimer(end)) {
    if (timer->due > clock().elapsed())
      clock().set(timer->due);
    const auto fire = [timer, shared = shared_.get()] {
      if (timer->isCancelled || timer->queue->isClosed)
        return;
      timer->task();
      const std::lock_guard lock(shared->mutex);
      if (timer->interval <= Duration::zero()) {
        timer->isCancelled = true;
        return;
      }
      const Duration late = std::max(shared->clock.elapsed() - timer->due, Duration::zero());
      timer->due += (late / timer->interval + 1) * timer->interval;
      timer->isQueued = false;
    };
    {
      const std::lock_guard lock(shared_->mutex);
      shared_->entries.push_back({timer->queue, fire});
    }
    runPending();
  }
  if (end > clock().elapsed())
    clock().set(end);
}

} // namespace tessarin
