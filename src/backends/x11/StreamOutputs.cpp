#include "backends/x11/StreamOutputs.hpp"

#include <algorithm>
#include <optional>
#include <utility>

namespace tessarin::x11 {

void StreamOutputs::add(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue) {
  const std::lock_guard lock(mutex_);
  const auto* identity = output.lock().get();
  if (!identity) {
    throw CaptureFailure();
  }
  entries_.push_back({std::move(output), identity, &queue});
}

void StreamOutputs::remove(const ScreenSampleOutput* output) {
  const std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const Entry& entry) { return entry.identity == output; });
}

bool StreamOutputs::isEmpty() const {
  const std::lock_guard lock(mutex_);
  return entries_.empty();
}

bool StreamOutputs::isAnyWaiting() const {
  const std::lock_guard lock(mutex_);
  return std::any_of(entries_.begin(), entries_.end(), [](const Entry& entry) { return entry.isWaiting; });
}

// Under the lock, so that removing an output waits for a hand-over that is under way.
void StreamOutputs::deliver(const std::function<Picture()>& picture, MediaTime presentationTime,
                            bool onlyToWaiting) {
  const std::lock_guard lock(mutex_);
  std::optional<ScreenSample> sample;
  for (auto& entry : entries_) {
    if (onlyToWaiting && !entry.isWaiting) {
      continue;
    }
    if (!sample) {
      sample = ScreenSample{picture(), presentationTime};
    }
    entry.isWaiting = false;
    entry.queue->async([output = entry.output, sample = *sample] {
      if (const auto receiver = output.lock()) {
        receiver->screenSample(sample);
      }
    });
  }
}

} // namespace tessarin::x11
