#include "modules/editing/CutClips.hpp"

namespace tessarin::editing {

namespace {

// Far beyond any film, and small enough for every scale.
constexpr std::int64_t mostMilliseconds = std::int64_t{1} << 40;

std::int64_t milliseconds(MediaTime time) {
  const MediaTime converted = time.convertedTo(1000);
  if (!converted.isNumeric() || converted != time || converted.value() < 0 ||
      converted.value() > mostMilliseconds)
    throw MovieEditingFailure(MovieEditingError::notComposable);
  return converted.value();
}

} // namespace

std::vector<CutClip> cutClips(const std::vector<MovieSegment>& segments) {
  std::vector<CutClip> clips;
  clips.reserve(segments.size());
  std::int64_t cursor = 0;
  for (const MovieSegment& segment : segments) {
    const std::int64_t length = milliseconds(segment.source.duration);
    const std::int64_t start = milliseconds(segment.source.start);
    if (length < 1 || milliseconds(segment.output.duration) != length ||
        milliseconds(segment.output.start) != cursor)
      throw MovieEditingFailure(MovieEditingError::notComposable);
    if (!clips.empty() && clips.back().sourceEnd == start)
      clips.back().sourceEnd += length;
    else
      clips.push_back({start, start + length, cursor});
    cursor += length;
  }
  if (clips.empty())
    throw MovieEditingFailure(MovieEditingError::notComposable);
  return clips;
}

} // namespace tessarin::editing
