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

// Under the lock, so that removing an output waits for a hand-over that is under way.
void StreamOutputs::deliver(const std::function<Picture()>& picture, MediaTime presentationTime,
                            bool isUnchanged) {
  const std::lock_guard lock(mutex_);
  std::optional<ScreenSample> sample;
  for (auto& entry : entries_) {
    const bool isRepeated = isUnchanged && !entry.isNew;
    if (isRepeated && entry.isBehind->exchange(true)) {
      continue;
    }
    if (!sample) {
      sample = ScreenSample{picture(), presentationTime};
    }
    sample->isUnchanged = isRepeated;
    entry.isNew = false;
    entry.queue->async([output = entry.output, sample = *sample, isBehind = entry.isBehind] {
      if (sample.isUnchanged) {
        *isBehind = false;
      }
      if (const auto receiver = output.lock()) {
        receiver->screenSample(sample);
      }
    });
  }
}

} // namespace tessarin::x11
