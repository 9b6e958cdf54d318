#pragma once

#include "ports/MovieEditing.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::editing {

// A stretch of the source that is taken as it is, in milliseconds.
struct CutClip {
  std::int64_t sourceStart = 0;
  std::int64_t sourceEnd = 0;
  std::int64_t outputStart = 0;

  std::int64_t outputEnd() const { return outputStart + sourceEnd - sourceStart; }
  bool operator==(const CutClip&) const = default;
};

// The stretches end to end; those that go on where the one before ended are one. Throws MovieEditingFailure:
// notComposable for stretches at another speed, empty ones, and ones that are not end to end.
std::vector<CutClip> cutClips(const std::vector<MovieSegment>& segments);

} // namespace tessarin::editing
