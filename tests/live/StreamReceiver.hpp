#pragma once

#include "base/SerialQueue.hpp"
#include "live/StillTesting.hpp"
#include "ports/Capture.hpp"
#include "support/FrameCounter.hpp"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace tessarin {

// Takes note of every picture that a stream delivers; one that is unchanged is only counted.
class StreamReceiver final : public ScreenSampleOutput {
 public:
  struct Delivery {
    Pixels pixels;
    std::optional<std::uint32_t> number; // of a frame counter at the top left
    MediaTime time;
    std::chrono::steady_clock::time_point arrival;
  };

  explicit StreamReceiver(bool keepsPixels = true) : keepsPixels_(keepsPixels) {}

  void screenSample(const ScreenSample& sample) override {
    if (sample.isUnchanged) {
      const std::lock_guard lock(mutex_);
      unchanged_.push_back(sample.presentationTime);
      isUnchangedAlike_ = isUnchangedAlike_ &&
                          (!keepsPixels_ || areSame(pixelsOf(sample.image->view), deliveries_.back().pixels));
      changed_.notify_all();
      return;
    }
    const auto arrival = std::chrono::steady_clock::now();
    Delivery delivery{keepsPixels_ ? pixelsOf(sample.image->view) : Pixels(),
                      frameCounter::read(sample.image->view), sample.presentationTime, arrival};
    const std::lock_guard lock(mutex_);
    deliveries_.push_back(std::move(delivery));
    if (isHolding_) {
      held_.push_back(*sample.image);
    }
    changed_.notify_all();
  }

  std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return deliveries_.size();
  }
  // The times of the samples that were said to be unchanged, and whether they all were.
  std::vector<MediaTime> unchanged() const {
    const std::lock_guard lock(mutex_);
    return unchanged_;
  }
  bool isUnchangedAlike() const {
    const std::lock_guard lock(mutex_);
    return isUnchangedAlike_;
  }
  std::vector<Delivery> deliveries() const {
    const std::lock_guard lock(mutex_);
    return deliveries_;
  }
  Delivery last() const { return deliveries().back(); }

  // Whether that many have come within the time.
  bool hasCome(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds(5)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return deliveries_.size() >= count; });
  }
  // Whether a picture like this is or becomes the last one.
  bool becomes(const std::function<bool(const Pixels&)>& holds) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(5),
                             [&] { return !deliveries_.empty() && holds(deliveries_.back().pixels); });
  }

  void setHolding(bool isHolding) {
    const std::lock_guard lock(mutex_);
    isHolding_ = isHolding;
    held_.clear();
  }
  std::vector<Picture> held() const {
    const std::lock_guard lock(mutex_);
    return held_;
  }

 private:
  const bool keepsPixels_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Delivery> deliveries_;
  std::vector<Picture> held_;
  bool isHolding_ = false;
  std::vector<MediaTime> unchanged_;
  bool isUnchangedAlike_ = true;
};

class StreamEnd final : public ScreenStreamDelegate {
 public:
  void streamDidStopWithError() override {
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  int count() const {
    const std::lock_guard lock(mutex_);
    return count_;
  }
  bool hasCome() const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(5), [&] { return count_ > 0; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  int count_ = 0;
};

} // namespace tessarin
