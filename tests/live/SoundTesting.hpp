#pragma once

#include "ports/Devices.hpp"
#include "support/FailureOf.hpp"
#include "support/PrivateSoundServer.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace tessarin {

// Takes note of all that a stream of sound delivers, and of its end.
class SoundReceiver {
 public:
  struct Buffer {
    std::int64_t time = 0; // nanoseconds
    std::size_t frameCount = 0;
    std::size_t firstFrame = 0; // in samples
  };

  AudioSampleHandler handler() {
    return [this](const AudioSample& sample) { take(sample); };
  }
  DeviceEndHandler endHandler() {
    return [this] {
      const std::lock_guard lock(mutex_);
      ++endCount_;
      changed_.notify_all();
    };
  }

  // Whether that many frames have come, from the call on.
  bool hears(std::size_t frameCount, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    std::unique_lock lock(mutex_);
    const auto wanted = left_.size() + frameCount;
    return changed_.wait_for(lock, limit, [&] { return left_.size() >= wanted; });
  }
  bool hasEnded(std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return endCount_ > 0; });
  }
  int endCount() {
    const std::lock_guard lock(mutex_);
    return endCount_;
  }
  std::size_t frameCount() {
    const std::lock_guard lock(mutex_);
    return left_.size();
  }
  std::vector<Buffer> buffers() {
    const std::lock_guard lock(mutex_);
    return buffers_;
  }
  bool isFloatStereo() {
    const std::lock_guard lock(mutex_);
    return isFloatStereo_;
  }
  bool hasComeAfterEnd() {
    const std::lock_guard lock(mutex_);
    return hasComeAfterEnd_;
  }

  // Root mean square of the newest frames of a channel.
  double level(int channel, std::size_t frameCount) {
    const std::lock_guard lock(mutex_);
    const auto& samples = channel == 0 ? left_ : right_;
    double sum = 0;
    for (auto i = samples.size() - frameCount; i < samples.size(); ++i) {
      sum += static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
    }
    return std::sqrt(sum / static_cast<double>(frameCount));
  }
  // The host time of the first sample that is so loud, in nanoseconds.
  std::optional<std::int64_t> firstLouderThan(float limit) {
    const std::lock_guard lock(mutex_);
    for (const auto& buffer : buffers_) {
      for (std::size_t i = 0; i < buffer.frameCount; ++i) {
        if (std::abs(left_[buffer.firstFrame + i]) > limit) {
          return buffer.time + static_cast<std::int64_t>(i) * 1'000'000'000 / 48000;
        }
      }
    }
    return std::nullopt;
  }
  // How much of the time from the first buffer on was delivered: 1 when nothing is missing. A busy machine
  // may lose a little.
  double coverage() {
    const std::lock_guard lock(mutex_);
    if (buffers_.size() < 2) {
      return 0;
    }
    const auto span = static_cast<double>(buffers_.back().time - buffers_.front().time) / 1e9;
    return static_cast<double>(buffers_.back().firstFrame - buffers_.front().firstFrame) / 48000 / span;
  }
  bool isStrictlyIncreasing() {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 1; i < buffers_.size(); ++i) {
      if (buffers_[i].time <= buffers_[i - 1].time) {
        return false;
      }
    }
    return true;
  }

 private:
  void take(const AudioSample& sample) {
    const std::lock_guard lock(mutex_);
    hasComeAfterEnd_ = hasComeAfterEnd_ || endCount_ > 0;
    const auto& pcm = sample.pcm;
    isFloatStereo_ = isFloatStereo_ && pcm.format == PcmFormat::float32 && pcm.channelCount == 2 &&
                     sample.sampleRate == 48000 && pcm.data.size() == pcm.frameCount * 2 * sizeof(float) &&
                     pcm.frameCount > 0 && sample.owner;
    buffers_.push_back({sample.presentationTime.value(), pcm.frameCount, left_.size()});
    const auto* values = reinterpret_cast<const float*>(pcm.data.data());
    for (std::size_t i = 0; i < pcm.frameCount; ++i) {
      left_.push_back(values[2 * i]);
      right_.push_back(values[2 * i + 1]);
    }
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<float> left_;
  std::vector<float> right_;
  std::vector<Buffer> buffers_;
  int endCount_ = 0;
  bool isFloatStereo_ = true;
  bool hasComeAfterEnd_ = false;
};

// What a call throws, if it throws.
template<class Call> std::optional<CaptureDeviceError> errorOf(Call call) {
  return failureOf<CaptureDeviceError>(call);
}

// How long a call takes.
template<class Call> std::chrono::milliseconds durationOf(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

} // namespace tessarin
