#pragma once

#include "base/EventQueue.hpp"

#include <memory>

namespace tessarin {

// A queue that lives on whichever thread runs it; the base of those that have one of their own and of the
// main thread's. Destroyed when nobody runs it any more; timers and watches may outlive it.
class EventLoop : public EventQueue {
 public:
  EventLoop();
  ~EventLoop() override;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  void async(Task task) override;
  // Never left waiting by the loop's end: from then on it runs the task, behind those that are still queued,
  // on the thread that calls.
  void sync(const Task& task) override;
  bool isCurrent() const override;
  std::unique_ptr<QueueTimer> after(Duration delay, Task task) override;
  std::unique_ptr<QueueTimer> every(Duration first, Duration interval, Task task) override;
  std::unique_ptr<DescriptorWatch> whenReadable(int descriptor, Task task) override;

  struct Core;

 protected:
  // Runs on the calling thread until the loop is ended, and then the tasks that are queued and those that
  // they hand over. Once.
  void runUntilEnded();
  // Ends the loop once the tasks handed over before have run. Timers and watches call nothing from then on.
  // Any thread.
  void end();

 private:
  std::unique_ptr<QueueTimer> makeTimer(Duration delay, Duration interval, Task task);

  const std::shared_ptr<Core> core_;
};

} // namespace tessarin
