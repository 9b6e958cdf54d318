#pragma once

#include "base/MediaTime.hpp"

namespace tessarin {

// A half-open stretch of a time line.
struct MediaTimeRange {
  MediaTime start;
  MediaTime duration;

  MediaTime end() const { return start + duration; }

  bool operator==(const MediaTimeRange&) const = default;
};

} // namespace tessarin
