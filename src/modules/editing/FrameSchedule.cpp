#include "modules/editing/FrameSchedule.hpp"

#include <algorithm>

namespace tessarin::editing {

namespace {

constexpr std::int64_t perSecond = 1000;
constexpr std::int64_t longestMs = std::int64_t{1} << 40;
// Wide enough for three times of that length and a timescale.
using Wide = __int128;

std::int64_t millisecondsOf(MediaTime time, std::int64_t least) {
  const MediaTime converted = time.convertedTo(perSecond);
  if (!converted.isNumeric() || converted != time || converted.value() < least ||
      converted.value() > longestMs)
    throw MovieEditingFailure(MovieEditingError::notComposable);
  return converted.value();
}

} // namespace

FrameSchedule::FrameSchedule(const std::vector<MovieSegment>& segments, MediaTime frameDuration)
    : frameDuration_(frameDuration) {
  if (segments.empty() || !(frameDuration > MediaTime::zero()) || frameDuration > MediaTime(1, 1))
    throw MovieEditingFailure(MovieEditingError::notComposable);
  stretches_.reserve(segments.size());
  for (const MovieSegment& segment : segments) {
    stretches_.push_back({millisecondsOf(segment.source.start, 0), millisecondsOf(segment.source.duration, 1),
                          millisecondsOf(segment.output.start, 0),
                          millisecondsOf(segment.output.duration, 1)});
    if (stretches_.back().outputStart != durationMs_)
      throw MovieEditingFailure(MovieEditingError::notComposable);
    durationMs_ += stretches_.back().outputDuration;
  }
  const Wide doubled = Wide{2} * durationMs_ * frameDuration.timescale();
  const Wide frame = Wide{perSecond} * frameDuration.value();
  count_ = std::max<std::int64_t>(static_cast<std::int64_t>((doubled + frame) / (2 * frame)), 1);
}

MediaTime FrameSchedule::outputTime(std::int64_t frame) const {
  return {frame * frameDuration_.value(), frameDuration_.timescale()};
}

std::int64_t FrameSchedule::sourceTime(std::int64_t frame, std::int32_t timescale) const {
  const std::int64_t scale = frameDuration_.timescale();
  // In units of a millisecond over the scale of the frames.
  const Wide time = Wide{perSecond} * frame * frameDuration_.value();
  const auto behind =
      std::upper_bound(stretches_.begin(), stretches_.end(), time, [&](Wide wanted, const Stretch& stretch) {
        return wanted < Wide{stretch.outputStart} * scale;
      });
  const Stretch& stretch = *std::prev(behind);
  const Wide within = time - Wide{stretch.outputStart} * scale;
  const Wide numerator =
      Wide{stretch.sourceStart} * scale * stretch.outputDuration + within * stretch.sourceDuration;
  const Wide denominator = Wide{perSecond} * scale * stretch.outputDuration;
  return static_cast<std::int64_t>(numerator * timescale / denominator);
}

} // namespace tessarin::editing
