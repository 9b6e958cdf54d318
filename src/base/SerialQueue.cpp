#include "base/SerialQueue.hpp"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <algorithm>
#include <atomic>
#include <future>
#include <pthread.h>
#include <thread>

namespace tessarin {

namespace {

// What queue and timers share, so that a timer may outlive its queue.
struct QueueCore {
  // More than one thread hands tasks over, so the default concurrency: it alone keeps their order.
  asio::io_context context;
  std::atomic<bool> isClosing = false;
};

// Owned by the handle alone; a wait holds it weakly. Everything but the flag belongs to the queue's thread
// once the first wait has begun.
class ThreadTimerState : public std::enable_shared_from_this<ThreadTimerState> {
 public:
  ThreadTimerState(std::shared_ptr<QueueCore> core, SerialQueue::Duration interval, SerialQueue::Task task)
      : core_(std::move(core)), timer_(core_->context), interval_(interval), task_(std::move(task)) {}

  void start(SerialQueue::Duration delay) {
    timer_.expires_after(delay);
    wait();
  }

  void cancel() {
    isCancelled_ = true;
    // The wait itself is ended on the queue, which alone may touch it.
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

  const std::shared_ptr<QueueCore> core_; // outlives the timer in it
  asio::steady_timer timer_;
  const SerialQueue::Duration interval_; // zero: once
  const SerialQueue::Task task_;
  std::atomic<bool> isCancelled_ = false;
};

class ThreadTimer final : public QueueTimer {
 public:
  explicit ThreadTimer(std::shared_ptr<ThreadTimerState> state) : state_(std::move(state)) {}
  ~ThreadTimer() override { state_->markCancelled(); }
  ThreadTimer(const ThreadTimer&) = delete;
  ThreadTimer& operator=(const ThreadTimer&) = delete;

  void cancel() override { state_->cancel(); }

 private:
  const std::shared_ptr<ThreadTimerState> state_;
};

// The kernel keeps 15 bytes of a name; the end of a dotted label tells queues apart.
std::string threadName(const std::string& label) {
  return label.substr(label.rfind('.') + 1, 15); // npos + 1 is 0
}

class ThreadQueue final : public SerialQueue {
 public:
  explicit ThreadQueue(const std::string& label)
      : core_(std::make_shared<QueueCore>()), thread_([core = core_, name = threadName(label)] {
          pthread_setname_np(pthread_self(), name.c_str());
          run(*core);
        }) {}

  ~ThreadQueue() override {
    asio::post(core_->context, [&core = *core_] { core.isClosing = true; });
    thread_.join();
  }
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;

  void async(Task task) override { asio::post(core_->context, std::move(task)); }

  void sync(const Task& task) override {
    if (isCurrent())
      return task();
    std::packaged_task<void()> run([&task] { task(); });
    std::future<void> done = run.get_future();
    asio::post(core_->context, std::move(run));
    done.get();
  }

  bool isCurrent() const override { return core_->context.get_executor().running_in_this_thread(); }

  std::unique_ptr<QueueTimer> after(Duration delay, Task task) override {
    return makeTimer(delay, Duration::zero(), std::move(task));
  }

  std::unique_ptr<QueueTimer> every(Duration first, Duration interval, Task task) override {
    return makeTimer(first, std::max(interval, Duration(1)), std::move(task));
  }

 private:
  static void run(QueueCore& core) {
    const auto guard = asio::make_work_guard(core.context);
    while (!core.isClosing)
      core.context.run_one();
    core.context.poll(); // what the last tasks handed over
  }

  std::unique_ptr<QueueTimer> makeTimer(Duration delay, Duration interval, Task task) {
    auto state = std::make_shared<ThreadTimerState>(core_, interval, std::move(task));
    state->start(delay);
    return std::make_unique<ThreadTimer>(std::move(state));
  }

  const std::shared_ptr<QueueCore> core_;
  std::thread thread_;
};

} // namespace

std::unique_ptr<SerialQueue> makeThreadQueue(const std::string& label) {
  return std::make_unique<ThreadQueue>(label);
}

} // namespace tessarin
