#pragma once

#include "base/MediaTime.hpp"
#include "base/SerialQueue.hpp"
#include "ports/Capture.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tessarin::x11 {

// Who gets a stream's pictures. Any thread.
class StreamOutputs {
 public:
  void add(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue);
  // Nothing is handed to the output's queue once this has returned.
  void remove(const ScreenSampleOutput* output);

  bool isEmpty() const;
  // Whether there is an output that has had no picture yet.
  bool isAnyWaiting() const;

  // Hands a picture to the outputs' queues, or only to those that have had none.
  void deliver(const std::function<Picture()>& picture, MediaTime presentationTime, bool onlyToWaiting);

 private:
  struct Entry {
    std::weak_ptr<ScreenSampleOutput> output;
    const ScreenSampleOutput* identity = nullptr;
    SerialQueue* queue = nullptr;
    bool isWaiting = true;
  };

  mutable std::mutex mutex_;
  std::vector<Entry> entries_; // guarded by mutex_
};

} // namespace tessarin::x11
