#pragma once

#include "ports/MovieEditing.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::editing {

// Which moment of the source each frame of the output shows. The frames lie on a grid; there are as many as
// come nearest to the output's duration, and at least one. Exact: nothing is rounded before the last step.
// Plain value, any thread.
class FrameSchedule {
 public:
  // Segments lie end to end from 0. Throws MovieEditingFailure(notComposable) where they do not, for a length
  // of nothing, and for a duration of frames that is none.
  FrameSchedule(const std::vector<MovieSegment>& segments, MediaTime frameDuration);

  std::int64_t count() const { return count_; }
  // Of the whole output, in milliseconds.
  std::int64_t durationMs() const { return durationMs_; }
  MediaTime outputTime(std::int64_t frame) const;
  // On the source's time line, in units of the timescale, rounded down.
  std::int64_t sourceTime(std::int64_t frame, std::int32_t timescale) const;

 private:
  // Milliseconds.
  struct Stretch {
    std::int64_t sourceStart = 0;
    std::int64_t sourceDuration = 0;
    std::int64_t outputStart = 0;
    std::int64_t outputDuration = 0;
  };

  std::vector<Stretch> stretches_;
  MediaTime frameDuration_;
  std::int64_t durationMs_ = 0;
  std::int64_t count_ = 0;
};

} // namespace tessarin::editing
