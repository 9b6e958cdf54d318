#include "recording/SystemAudioLevelCollector.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace tessarin {

namespace {

// A copy of the samples, which need not lie as floats should; none when the buffer is not what it says.
std::vector<float> samplesOf(const PcmView& pcm) {
  if (pcm.format != PcmFormat::float32 || pcm.channelCount <= 0)
    return {};
  const auto channels = static_cast<std::size_t>(pcm.channelCount);
  if (pcm.frameCount > pcm.data.size() / sizeof(float) / channels)
    return {};
  std::vector<float> samples(pcm.frameCount * channels);
  if (!samples.empty())
    std::memcpy(samples.data(), pcm.data.data(), samples.size() * sizeof(float));
  return samples;
}

} // namespace

void SystemAudioLevelCollector::collect(const PcmView& pcm) {
  const std::vector<float> samples = samplesOf(pcm);
  const std::lock_guard lock(lock_);
  for (const double sample : samples) {
    squareSum_ += sample * sample;
    peak_ = std::max(peak_, std::fabs(sample));
  }
  sampleCount_ += static_cast<std::int64_t>(samples.size());
}

RecordingAudioLevelPayload SystemAudioLevelCollector::level() const {
  const std::lock_guard lock(lock_);
  return {.rms = sampleCount_ > 0 ? std::sqrt(squareSum_ / static_cast<double>(sampleCount_)) : 0,
          .peak = peak_,
          .sampleCount = sampleCount_};
}

} // namespace tessarin
