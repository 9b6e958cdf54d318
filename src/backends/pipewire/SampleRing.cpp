#include "backends/pipewire/SampleRing.hpp"

#include <algorithm>

namespace tessarin::pipewire {

SampleRing::SampleRing(std::size_t frameCapacity, std::size_t bufferCapacity, std::size_t channelCount)
    : channelCount_(channelCount), samples_(frameCapacity * channelCount), records_(bufferCapacity) {}

bool SampleRing::push(const float* samples, const BufferRecord& record) noexcept {
  const auto capacity = samples_.size() / channelCount_;
  const auto pushed = pushed_.load(std::memory_order_relaxed);
  const auto used = pushedFrames_ - poppedFrames_.load(std::memory_order_acquire);
  if (pushed - popped_.load(std::memory_order_acquire) == records_.size() ||
      record.frameCount > capacity - used) {
    return false;
  }
  const auto start = pushedFrames_ % capacity;
  const auto first = std::min(record.frameCount, capacity - start);
  std::copy_n(samples, first * channelCount_, samples_.data() + start * channelCount_);
  std::copy_n(samples + first * channelCount_, (record.frameCount - first) * channelCount_, samples_.data());
  records_[pushed % records_.size()] = record;
  pushedFrames_ += record.frameCount;
  pushed_.store(pushed + 1, std::memory_order_release);
  return true;
}

const BufferRecord* SampleRing::front() const noexcept {
  const auto popped = popped_.load(std::memory_order_relaxed);
  return popped == pushed_.load(std::memory_order_acquire) ? nullptr : &records_[popped % records_.size()];
}

void SampleRing::pop(float* samples) noexcept {
  const auto* record = front();
  if (!record) {
    return;
  }
  const auto capacity = samples_.size() / channelCount_;
  const auto frameCount = record->frameCount;
  const auto poppedFrames = poppedFrames_.load(std::memory_order_relaxed);
  const auto start = poppedFrames % capacity;
  const auto first = std::min(frameCount, capacity - start);
  std::copy_n(samples_.data() + start * channelCount_, first * channelCount_, samples);
  std::copy_n(samples_.data(), (frameCount - first) * channelCount_, samples + first * channelCount_);
  poppedFrames_.store(poppedFrames + frameCount, std::memory_order_release);
  popped_.store(popped_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

} // namespace tessarin::pipewire
