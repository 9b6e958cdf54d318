#pragma once

#include "base/MediaTime.hpp"
#include "base/SerialQueue.hpp"
#include "ports/Capture.hpp"

#include <atomic>
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

  // Hands a picture to the outputs' queues. One that is unchanged since the last delivery is left out where
  // the one before it still waits, so that a queue that is behind does not fill up.
  void deliver(const std::function<Picture()>& picture, MediaTime presentationTime, bool isUnchanged);

 private:
  struct Entry {
    std::weak_ptr<ScreenSampleOutput> output;
    const ScreenSampleOutput* identity = nullptr;
    SerialQueue* queue = nullptr;
    bool isNew = true; // has had no picture yet
    // Of the unchanged pictures handed over, whether one has not been taken yet.
    std::shared_ptr<std::atomic<bool>> isBehind = std::make_shared<std::atomic<bool>>(false);
  };

  mutable std::mutex mutex_;
  std::vector<Entry> entries_; // guarded by mutex_
};

} // namespace tessarin::x11
