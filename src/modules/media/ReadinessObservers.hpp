#pragma once

#include "ports/MediaWriting.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tessarin::media {

// Those who wait for an input to become ready. Any thread.
class ReadinessObservers {
 public:
  // Calls the handler at once, and at each notification until the observation ends.
  std::unique_ptr<ReadinessObservation> add(std::function<void()> handler);
  void notify();

 private:
  struct Observer;
  class Observation;

  std::mutex mutex_;
  std::vector<std::weak_ptr<Observer>> observers_; // under the mutex
};

} // namespace tessarin::media
