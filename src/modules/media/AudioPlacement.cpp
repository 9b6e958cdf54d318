#include "modules/media/AudioPlacement.hpp"

#include <algorithm>
#include <cstdlib>

namespace tessarin::media {

namespace {

constexpr std::int64_t milli = 1000;
// A single time that is further off is no jitter.
constexpr std::int64_t largestJitter = 20; // milliseconds
// An average that is further off is made up for.
constexpr std::int64_t largestDrift = 3; // milliseconds
// How long the average goes.
constexpr std::int64_t judgedTime = 500; // milliseconds

} // namespace

AudioPlacement::AudioPlacement(std::int32_t sampleRate) : rate_(sampleRate) {}

PlacedSound AudioPlacement::place(std::int64_t start, std::int64_t frames) {
  if (frames < 1 || (!hasSound_ && start + frames <= end_))
    return {0, std::max<std::int64_t>(frames, 0), 0};
  const std::int64_t offset = start - end_;
  if (!hasSound_ || std::abs(offset) * milli > largestJitter * rate_)
    return placeAway(offset, frames);
  if (owed_ == 0)
    judge(offset, frames);
  PlacedSound placed;
  placed.length = frames + instalment(frames);
  end_ += placed.length;
  return placed;
}

// At its own time, as far as the stream is not there yet.
PlacedSound AudioPlacement::placeAway(std::int64_t offset, std::int64_t frames) {
  forget();
  hasSound_ = true;
  PlacedSound placed;
  placed.silence = std::max<std::int64_t>(offset, 0);
  placed.skipped = std::min(std::max<std::int64_t>(-offset, 0), frames);
  placed.length = frames - placed.skipped;
  end_ += placed.silence + placed.length;
  return placed;
}

void AudioPlacement::judge(std::int64_t offset, std::int64_t frames) {
  judgedFrames_ += frames;
  lateness_ += offset * frames;
  if (judgedFrames_ * milli < judgedTime * rate_)
    return;
  const std::int64_t mean = lateness_ / judgedFrames_;
  forget();
  if (std::abs(mean) * milli > largestDrift * rate_)
    correction_ = owed_ = mean;
}

// What this stretch is to be longer by, so that the whole correction takes about a second.
std::int64_t AudioPlacement::instalment(std::int64_t frames) {
  gathered_ += frames * std::abs(correction_);
  const std::int64_t most = owed_ < 0 ? std::min(-owed_, frames - 1) : std::min(owed_, frames);
  const std::int64_t size = std::min(gathered_ / rate_, most);
  gathered_ -= size * rate_;
  const std::int64_t signedSize = owed_ < 0 ? -size : size;
  owed_ -= signedSize;
  if (owed_ == 0)
    correction_ = gathered_ = 0;
  return signedSize;
}

void AudioPlacement::forget() {
  judgedFrames_ = lateness_ = 0;
  correction_ = owed_ = gathered_ = 0;
}

std::int64_t AudioPlacement::fillTo(std::int64_t frame) {
  const std::int64_t missing = std::max<std::int64_t>(frame - end_, 0);
  if (missing > 0) {
    forget();
    hasSound_ = false; // what comes next has a place of its own
  }
  end_ += missing;
  return missing;
}

void stretchSound(std::span<const float> sound, std::size_t channelCount, std::size_t frames,
                  std::vector<float>& into) {
  const std::size_t count = sound.size() / channelCount;
  into.resize(frames * channelCount);
  for (std::size_t i = 0; i < frames && count > 0; ++i) {
    const std::size_t steps = frames > 1 ? frames - 1 : 1;
    const std::size_t before = i * (count - 1) / steps;
    const std::size_t after = std::min(before + 1, count - 1);
    const float part = static_cast<float>(i * (count - 1) % steps) / static_cast<float>(steps);
    for (std::size_t channel = 0; channel < channelCount; ++channel) {
      const float from = sound[before * channelCount + channel];
      into[i * channelCount + channel] = from + (sound[after * channelCount + channel] - from) * part;
    }
  }
}

} // namespace tessarin::media
