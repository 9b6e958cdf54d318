#include "narration/AudioWaveformService.hpp"

#include "base/Failure.hpp"
#include "base/ParallelTasks.hpp"
#include "model/MediaErrors.hpp"

#include <algorithm>
#include <cmath>
#include <string>

namespace tessarin {

namespace {

constexpr double decodedSampleRate = 48000;

// Infinite samples and those that are no number count for nothing.
double peakOf(std::span<const float> samples) {
  float peak = 0;
  for (const float sample : samples)
    if (const float magnitude = std::fabs(sample); magnitude > peak && std::isfinite(magnitude))
      peak = magnitude;
  return std::min(static_cast<double>(peak), 1.0);
}

// The slices of a recording's length, each with the greatest peak of the stretches of sound that touch it.
class Slices {
 public:
  Slices(std::size_t count, double duration) : amplitudes_(count), duration_(duration) {}

  void add(const DecodedSound& sound) {
    const double peak = peakOf(sound.samples);
    if (peak <= 0)
      return;
    const double start = std::max(sound.start.seconds(), 0.0);
    if (start >= duration_)
      return;
    const double end = start + static_cast<double>(sound.samples.size()) / decodedSampleRate;
    const std::size_t first = sliceAt(start);
    const std::size_t last = std::max(first, sliceAt(std::min(end, duration_)));
    for (std::size_t slice = first; slice <= last; ++slice)
      amplitudes_[slice] = std::max(amplitudes_[slice], peak);
  }

  const std::vector<double>& amplitudes() const { return amplitudes_; }

 private:
  std::size_t sliceAt(double seconds) const {
    const double position = std::floor(seconds / duration_ * static_cast<double>(amplitudes_.size()));
    return static_cast<std::size_t>(std::clamp(position, 0.0, static_cast<double>(amplitudes_.size() - 1)));
  }

  std::vector<double> amplitudes_;
  double duration_; // seconds
};

MediaAsset assetOf(MediaAssets& assets, const std::string& path) {
  try {
    return assets.asset(path);
  } catch (const MovieEditingFailure&) {
    fail(AudioWaveformServiceError::invalidMedia);
  }
}

} // namespace

AudioWaveformPayload AudioWaveformService::generate(const ValidatedAudioWaveformRequest& request) const {
  const MediaAsset asset = assetOf(assets_, request.sourcePath);
  if (!asset.duration.isNumeric() || asset.duration <= MediaTime::zero())
    fail(AudioWaveformServiceError::invalidDuration);

  std::vector<Slices> tracks(asset.audioTracks.size(), Slices(request.sampleCount, asset.duration.seconds()));
  ParallelTasks tasks(makeQueue_);
  for (std::size_t index = 0; index < tracks.size(); ++index)
    tasks.start("com.tessarin.waveform-" + std::to_string(index), [this, &request, &tracks, index] {
      assets_.decodeSound(request.sourcePath, index,
                          [&slices = tracks[index]](const DecodedSound& sound) { slices.add(sound); });
    });
  try {
    tasks.join();
  } catch (const MovieEditingFailure&) {
    fail(AudioWaveformServiceError::readerFailed);
  }

  AudioWaveformPayload payload{request.sourcePath, static_cast<std::int64_t>(request.sampleCount),
                               std::vector<double>(request.sampleCount)};
  for (const Slices& track : tracks)
    std::transform(payload.amplitudes.begin(), payload.amplitudes.end(), track.amplitudes().begin(),
                   payload.amplitudes.begin(), [](double a, double b) { return std::max(a, b); });
  return payload;
}

} // namespace tessarin
