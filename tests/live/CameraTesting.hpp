#pragma once

#include "backends/pipewire/Devices.hpp"
#include "base/HostClock.hpp"
#include "support/CameraPicture.hpp"
#include "support/FrameCounter.hpp"
#include "support/PrivateSoundServer.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tessarin {

// How far the middles of the bars, in the lower half, are from the colours that the test camera shows; 255
// when they cannot be seen.
inline int worstBar(const PictureView& picture) {
  if (picture.width < 16 || picture.height < 2) {
    return 255;
  }
  int worst = 0;
  for (int bar = 0; bar < 8; ++bar) {
    const int x = (2 * bar + 1) * picture.width / 16;
    const auto* pixel =
        picture.data + (picture.height - 1) * picture.stride + static_cast<std::ptrdiff_t>(x) * 4;
    const auto colour = camera::barColour(x, picture.width);
    worst = std::max({worst, std::abs(pixel[2] - colour.red), std::abs(pixel[1] - colour.green),
                      std::abs(pixel[0] - colour.blue)});
  }
  return worst;
}

// Takes note of everything a camera delivers. Any thread.
class CameraReceiver {
 public:
  struct Delivery {
    int width = 0;
    int height = 0;
    std::optional<std::uint32_t> number; // of the frame counter
    int worstBar = 255;
    MediaTime time;
    MediaTime arrival;
  };

  CameraFrameHandler onFrame() {
    return [this](const CameraFrame& frame) {
      const auto& view = frame.picture.view;
      const Delivery delivery{
          view.width,  view.height, frameCounter::read(view), worstBar(view), frame.presentationTime,
          clock_.now()};
      std::this_thread::sleep_for(delay_);
      const std::lock_guard lock(mutex_);
      deliveries_.push_back(delivery);
      held_.push_back(frame.picture);
      isLate_ = isLate_ || endCount_ > 0;
      changed_.notify_all();
    };
  }
  DeviceEndHandler onEnd() {
    return [this] {
      const std::lock_guard lock(mutex_);
      ++endCount_;
      changed_.notify_all();
    };
  }

  // How long each frame keeps the handler; before the stream is started.
  void setDelay(std::chrono::milliseconds delay) { delay_ = delay; }

  std::vector<Delivery> deliveries() const {
    const std::lock_guard lock(mutex_);
    return deliveries_;
  }
  std::size_t count() const { return deliveries().size(); }
  // Whether that many, counted from the beginning, have come within the time.
  bool hasCome(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds(5)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return deliveries_.size() >= count; });
  }
  // Whether another frame comes that holds this.
  template<class Condition> bool becomes(const Condition& holds) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(5),
                             [&] { return !deliveries_.empty() && holds(deliveries_.back()); });
  }
  bool hasEnded(std::chrono::milliseconds limit = std::chrono::seconds(5)) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return endCount_ > 0; });
  }
  int endCount() const {
    const std::lock_guard lock(mutex_);
    return endCount_;
  }
  // Whether a frame came behind the end.
  bool isLate() const {
    const std::lock_guard lock(mutex_);
    return isLate_;
  }
  std::vector<Picture> held() const {
    const std::lock_guard lock(mutex_);
    return held_;
  }

 private:
  MonotonicHostClock clock_;
  std::chrono::milliseconds delay_{0};
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Delivery> deliveries_;
  std::vector<Picture> held_;
  int endCount_ = 0;
  bool isLate_ = false;
};

// A sound server of the test's own, which the backend of this process finds.
class CameraTest : public testing::Test {
 protected:
  std::unique_ptr<TestSource> plugIn(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), "camera");
    return server_.source(arguments);
  }
  std::unique_ptr<DeviceStream> open(CameraReceiver& receiver,
                                     const std::optional<std::string>& id = std::nullopt) {
    return devices_->openCamera(id, receiver.onFrame(), receiver.onEnd());
  }

  PrivateSoundServer server_;
  ProcessEnvironment environment_{server_.environment()};
  std::unique_ptr<CaptureDevices> devices_ = pipewire::makeCaptureDevices();
};

} // namespace tessarin
