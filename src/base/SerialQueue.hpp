#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace tessarin {

// A pending or repeating call on a SerialQueue. Destroying or cancelling it prevents every later call; a
// call that runs at that moment on the queue is not waited for. Both may be done on any thread, within its
// own call too, and after the queue is gone.
class QueueTimer {
 public:
  virtual ~QueueTimer() = default;
  virtual void cancel() = 0;
};

// The unit of concurrency: runs tasks one at a time, in the order in which they were handed over. State
// that is confined to a queue needs no lock. Every method may be called on any thread.
class SerialQueue {
 public:
  using Task = std::function<void()>;
  using Duration = std::chrono::nanoseconds;

  virtual ~SerialQueue() = default;

  // The task must not throw.
  virtual void async(Task task) = 0;
  // Runs the task on the queue and returns when it has run; runs it at once when already there. What the
  // task throws is thrown here.
  virtual void sync(const Task& task) = 0;
  virtual bool isCurrent() const = 0;

  // Calls once after the delay, or first after `first` and then at each interval. A repeating timer that
  // falls behind skips calls rather than bunching them. The task must not throw.
  [[nodiscard]] virtual std::unique_ptr<QueueTimer> after(Duration delay, Task task) = 0;
  [[nodiscard]] virtual std::unique_ptr<QueueTimer> every(Duration first, Duration interval, Task task) = 0;
};

// A queue with a thread of its own, named by the first 15 bytes behind the label's last dot. The destructor
// runs the tasks that are queued and those that they hand over, drops the timers and joins the thread; it
// must not run on the queue.
std::unique_ptr<SerialQueue> makeThreadQueue(const std::string& label);

// Makes queues; handed in so that tests hand out queues that they step by hand.
using QueueFactory = std::function<std::unique_ptr<SerialQueue>(const std::string& label)>;

} // namespace tessarin
