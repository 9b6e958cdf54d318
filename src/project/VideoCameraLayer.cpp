#include "project/VideoCameraLayer.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tessarin {

namespace {

using Positions = std::vector<VideoCameraPositionDTO>;

// The first position that comes after the moment; what stands before it is at or before the moment.
Positions::const_iterator firstAfter(const Positions& positions, std::int64_t timeMs) {
  return std::upper_bound(positions.begin(), positions.end(), timeMs,
                          [](std::int64_t moment, const VideoCameraPositionDTO& position) {
                            return moment < position.sourceTimeMs;
                          });
}

// Where the camera is at a moment. The positions are not empty.
const NormalizedVideoRectDTO& rectAt(const Positions& positions, std::int64_t timeMs) {
  const auto next = firstAfter(positions, timeMs);
  return next == positions.begin() ? next->rect : std::prev(next)->rect;
}

} // namespace

VideoCameraLayerDTO VideoCameraLayerDTO::at(std::int64_t timeMs) const {
  if (!recordedPositions || recordedPositions->empty())
    return *this;
  return {visible, rectAt(*recordedPositions, timeMs), shape, mirrored, borderVisible, std::nullopt};
}

VideoCameraLayerDTO VideoCameraLayerDTO::mappedToOutput(const std::vector<ClipSpan>& clips) const {
  if (!recordedPositions || recordedPositions->empty())
    return *this;
  Positions mapped;
  std::int64_t clipStartMs = 0; // on the output's time line
  for (const ClipSpan& clip : clips) {
    mapped.push_back({clipStartMs, rectAt(*recordedPositions, clip.sourceStartMs)});
    auto position = firstAfter(*recordedPositions, clip.sourceStartMs);
    for (; position != recordedPositions->end() && position->sourceTimeMs < clip.sourceEndMs; ++position)
      mapped.push_back(
          {clipStartMs + clip.outputMs(position->sourceTimeMs - clip.sourceStartMs), position->rect});
    clipStartMs += clip.outputDurationMs();
  }
  return {visible, rect, shape, mirrored, borderVisible, std::move(mapped)};
}

} // namespace tessarin
