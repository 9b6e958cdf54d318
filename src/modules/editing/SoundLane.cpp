#include "modules/editing/SoundLane.hpp"

#include <soundtouch/SoundTouch.h>

#include <algorithm>

namespace tessarin::editing {

namespace {

static_assert(std::is_same_v<soundtouch::SAMPLETYPE, float>);

constexpr std::int32_t rate = 48000;
constexpr std::int64_t framesPerMs = rate / 1000;
constexpr std::int64_t rampFrames = 5 * framesPerMs;
constexpr std::int64_t feedingFrames = 2048;

std::int64_t framesOf(MediaTime time) {
  return time.convertedTo(rate).value();
}

} // namespace

SoundLane::SoundLane(const SourceFile& file, const MovieAudioLane& lane,
                     const std::vector<MovieSegment>& segments)
    : reader_(file, file.sound(lane.sourceTrackIndex)), segments_(segments), volumes_(lane.volumes) {
  if (volumes_.size() != segments.size())
    throw MovieEditingFailure(MovieEditingError::notComposable);
  if (!volumes_.empty())
    volume_ = volumes_.front(); // no change ahead of the first one
}

SoundLane::~SoundLane() = default;

void SoundLane::addTo(std::span<float> frames) {
  while (!frames.empty()) {
    while (segmentLeft_ == 0 && next_ < segments_.size())
      beginSegment();
    if (segmentLeft_ == 0)
      return;
    const std::int64_t count = std::min(segmentLeft_, static_cast<std::int64_t>(frames.size() / 2));
    const auto samples = static_cast<std::size_t>(2 * count);
    const bool isRamp = sinceChange_ < rampFrames && volumeBefore_ != volume_;
    if (volume_ != 0 || isRamp) {
      scratch_.resize(samples);
      readSegment(scratch_);
      for (std::size_t i = 0; i < samples; ++i) {
        float volume = volume_;
        const std::int64_t at = sinceChange_ + static_cast<std::int64_t>(i / 2);
        if (at < rampFrames)
          volume = volumeBefore_ + (volume_ - volumeBefore_) * static_cast<float>(at) / rampFrames;
        frames[i] += scratch_[i] * volume;
      }
    }
    sinceChange_ += count;
    segmentLeft_ -= count;
    frames = frames.subspan(samples);
  }
}

void SoundLane::beginSegment() {
  const MovieSegment& segment = segments_[next_];
  volumeBefore_ = volume_;
  volume_ = volumes_[next_];
  sinceChange_ = 0;
  segmentLeft_ = framesOf(segment.output.duration);
  sourceLeft_ = framesOf(segment.source.duration);
  ++next_;
  stretcher_.reset();
  if (volume_ == 0 && volumeBefore_ == 0)
    return;
  reader_.seek(framesOf(segment.source.start));
  if (sourceLeft_ == segmentLeft_)
    return;
  stretcher_ = std::make_unique<soundtouch::SoundTouch>();
  stretcher_->setSampleRate(rate);
  stretcher_->setChannels(2);
  stretcher_->setTempo(static_cast<double>(sourceLeft_) / static_cast<double>(segmentLeft_));
}

void SoundLane::readSegment(std::span<float> frames) {
  if (stretcher_)
    readStretched(frames);
  else
    reader_.read(frames);
}

// What the stretcher lacks at the very end, by its rounding, is silent.
void SoundLane::readStretched(std::span<float> frames) {
  while (!frames.empty()) {
    const unsigned count =
        stretcher_->receiveSamples(frames.data(), static_cast<unsigned>(frames.size() / 2));
    frames = frames.subspan(std::size_t{count} * 2);
    if (count > 0)
      continue;
    if (sourceLeft_ == 0) {
      std::fill(frames.begin(), frames.end(), 0.0F);
      return;
    }
    const std::int64_t feeding = std::min(sourceLeft_, feedingFrames);
    fed_.resize(static_cast<std::size_t>(2 * feeding));
    reader_.read(fed_);
    stretcher_->putSamples(fed_.data(), static_cast<unsigned>(feeding));
    sourceLeft_ -= feeding;
    if (sourceLeft_ == 0)
      stretcher_->flush();
  }
}

} // namespace tessarin::editing
