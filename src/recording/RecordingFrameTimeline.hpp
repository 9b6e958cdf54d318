#pragma once

#include "base/MediaTime.hpp"

// The grid on which written pictures stand: multiples of the frame interval from the segment's epoch. Pure
// functions, any thread.
namespace tessarin::RecordingFrameTimeline {

// The grid time nearest to a source time, from zero at the epoch, at the interval's timescale. Not numeric
// when an argument is not, when the source time lies before the epoch, or when the interval is not positive.
MediaTime presentationTime(MediaTime sourceTime, MediaTime sourceEpoch, MediaTime frameInterval);

} // namespace tessarin::RecordingFrameTimeline
