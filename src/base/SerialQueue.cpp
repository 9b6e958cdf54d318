#include "base/SerialQueue.hpp"

#include "base/EventLoop.hpp"

#include <pthread.h>
#include <thread>

namespace tessarin {

namespace {

// The kernel keeps 15 bytes of a name; the end of a dotted label tells queues apart.
std::string threadName(const std::string& label) {
  return label.substr(label.rfind('.') + 1, 15); // npos + 1 is 0
}

class ThreadQueue final : public EventLoop {
 public:
  explicit ThreadQueue(const std::string& label)
      : thread_([this, name = threadName(label)] {
          pthread_setname_np(pthread_self(), name.c_str());
          runUntilEnded();
        }) {}

  ~ThreadQueue() override {
    end();
    thread_.join();
  }
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;

 private:
  std::thread thread_;
};

} // namespace

std::unique_ptr<SerialQueue> makeThreadQueue(const std::string& label) {
  return std::make_unique<ThreadQueue>(label);
}

} // namespace tessarin
