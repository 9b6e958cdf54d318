#include "recording/RecordingFrameTimeline.hpp"

namespace tessarin::RecordingFrameTimeline {

MediaTime presentationTime(MediaTime sourceTime, MediaTime sourceEpoch, MediaTime frameInterval) {
  if (!sourceTime.isNumeric() || !sourceEpoch.isNumeric() || !frameInterval.isNumeric())
    return {};
  if (sourceTime < sourceEpoch || frameInterval <= MediaTime::zero())
    return {};
  const std::int32_t timescale = frameInterval.timescale();
  const MediaTime delta = (sourceTime - sourceEpoch).convertedTo(timescale);
  if (!delta.isNumeric())
    return {};
  const std::int64_t index = delta.value() / frameInterval.value();
  return {index * frameInterval.value(), timescale};
}

} // namespace tessarin::RecordingFrameTimeline
