#include "base/EventLoop.hpp"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>

namespace tessarin {

// What loop, timers and watches share, so that these may outlive their loop.
struct EventLoop::Core {
  // More than one thread hands tasks over, so the default concurrency: it alone keeps their order.
  asio::io_context context;
  std::atomic<bool> isClosing = false;

  std::mutex endLock;    // held while tasks run after the end
  bool hasEnded = false; // guarded by endLock
};

namespace {

// Owned by the handle alone; a wait holds it weakly. Everything but the flag belongs to the loop's thread
// once the first wait has begun.
class TimerState : public std::enable_shared_from_this<TimerState> {
 public:
  TimerState(std::shared_ptr<EventLoop::Core> core, SerialQueue::Duration interval, SerialQueue::Task task)
      : core_(std::move(core)), timer_(core_->context), interval_(interval), task_(std::move(task)) {}

  void start(SerialQueue::Duration delay) {
    timer_.expires_after(delay);
    wait();
  }

  void cancel() {
    isCancelled_ = true;
    // The wait itself is ended on the loop, which alone may touch it.
    asio::post(core_->context, [weak = weak_from_this()] {
      if (const auto self = weak.lock())
        self->timer_.cancel();
    });
  }

  void markCancelled() { isCancelled_ = true; }

 private:
  void wait() {
    timer_.async_wait([weak = weak_from_this()](const asio::error_code& error) {
      if (const auto self = weak.lock(); self && !error)
        self->fire();
    });
  }

  void fire() {
    if (isCancelled_ || core_->isClosing)
      return;
    task_();
    if (interval_ <= SerialQueue::Duration::zero() || isCancelled_)
      return;
    const auto due = timer_.expiry();
    const auto missed =
        std::max(std::chrono::steady_clock::now() - due, SerialQueue::Duration::zero()) / interval_;
    timer_.expires_at(due + (missed + 1) * interval_);
    wait();
  }

  const std::shared_ptr<EventLoop::Core> core_; // outlives the timer in it
  asio::steady_timer timer_;
  const SerialQueue::Duration interval_; // zero: once
  const SerialQueue::Task task_;
  std::atomic<bool> isCancelled_ = false;
};

class LoopTimer final : public QueueTimer {
 public:
  explicit LoopTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}
  ~LoopTimer() override { state_->markCancelled(); }
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  void cancel() override { state_->cancel(); }

 private:
  const std::shared_ptr<TimerState> state_;
};

// Owned by the handle; a call keeps it until it returns. Confined to the loop's thread.
class WatchState : public std::enable_shared_from_this<WatchState> {
 public:
  WatchState(std::shared_ptr<EventLoop::Core> core, int descriptor, SerialQueue::Task task)
      : core_(std::move(core)), descriptor_(core_->context, descriptor), task_(std::move(task)) {}
  ~WatchState() { stop(); }
  WatchState(const WatchState&) = delete;
  WatchState& operator=(const WatchState&) = delete;

  void wait() {
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                           [weak = weak_from_this()](const asio::error_code& error) {
                             if (const auto self = weak.lock(); self && !error)
                               self->fire();
                           });
  }

  // The descriptor is its owner's again.
  void stop() {
    if (descriptor_.is_open())
      descriptor_.release();
  }

 private:
  void fire() {
    if (!descriptor_.is_open() || core_->isClosing)
      return;
    task_();
    if (descriptor_.is_open())
      wait();
  }

  const std::shared_ptr<EventLoop::Core> core_; // outlives the descriptor in it
  asio::posix::stream_descriptor descriptor_;
  const SerialQueue::Task task_;
};

class LoopWatch final : public DescriptorWatch {
 public:
  explicit LoopWatch(std::shared_ptr<WatchState> state) : state_(std::move(state)) {}
  ~LoopWatch() override { state_->stop(); }
  LoopWatch(const LoopWatch&) = delete;
  LoopWatch& operator=(const LoopWatch&) = delete;

 private:
  const std::shared_ptr<WatchState> state_;
};

} // namespace

EventLoop::EventLoop() : core_(std::make_shared<Core>()) {}

EventLoop::~EventLoop() = default;

void EventLoop::async(Task task) {
  asio::post(core_->context, std::move(task));
}

void EventLoop::sync(const Task& task) {
  if (isCurrent())
    return task();
  std::packaged_task<void()> run([&task] { task(); });
  std::future<void> done = run.get_future();
  {
    // What is handed over before the end is still run by the loop itself.
    const std::lock_guard guard(core_->endLock);
    asio::post(core_->context, std::move(run));
    if (core_->hasEnded) {
      core_->context.restart();
      core_->context.poll();
    }
  }
  done.get();
}

bool EventLoop::isCurrent() const {
  return core_->context.get_executor().running_in_this_thread();
}

std::unique_ptr<QueueTimer> EventLoop::after(Duration delay, Task task) {
  return makeTimer(delay, Duration::zero(), std::move(task));
}

std::unique_ptr<QueueTimer> EventLoop::every(Duration first, Duration interval, Task task) {
  return makeTimer(first, std::max(interval, Duration(1)), std::move(task));
}

std::unique_ptr<DescriptorWatch> EventLoop::whenReadable(int descriptor, Task task) {
  auto state = std::make_shared<WatchState>(core_, descriptor, std::move(task));
  state->wait();
  return std::make_unique<LoopWatch>(std::move(state));
}

void EventLoop::runUntilEnded() {
  {
    const auto guard = asio::make_work_guard(core_->context);
    while (!core_->isClosing)
      core_->context.run_one();
  }
  const std::lock_guard guard(core_->endLock);
  core_->hasEnded = true;
  core_->context.restart();
  core_->context.poll(); // what the last tasks handed over
}

void EventLoop::end() {
  asio::post(core_->context, [&core = *core_] { core.isClosing = true; });
}

std::unique_ptr<QueueTimer> EventLoop::makeTimer(Duration delay, Duration interval, Task task) {
  auto state = std::make_shared<TimerState>(core_, interval, std::move(task));
  state->start(delay);
  return std::make_unique<LoopTimer>(std::move(state));
}

} // namespace tessarin
