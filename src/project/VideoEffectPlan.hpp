#pragma once

#include "project/VideoEditEffect.hpp"

#include <cstdint>
#include <optional>
#include <vector>

// What an edit's effects come to at one moment of the output, in milliseconds. Pure, any thread.
namespace tessarin::VideoEffectPlan {

// The effects that are to be seen at the moment, in the order of painting: by kind, and those of one kind (of
// rectangles and ellipses together) as they are listed. The pointers are into the list.
std::vector<const VideoEditEffectDTO*> active(const std::vector<VideoEditEffectDTO>& effects,
                                              std::int64_t atMs);

// How far a zoom has gone: 1 outside of it, and its scale within but for a smooth way in and out of a quarter
// of a second each, or half its length.
double zoomScale(const ZoomVideoEffectDTO& zoom, std::int64_t atMs);

// The moment of the source whose picture is held; nothing when none is. Of two at once the later in the list
// counts.
std::optional<std::int64_t> freezeSourceTime(const std::vector<VideoEditEffectDTO>& effects,
                                             std::int64_t atMs);

} // namespace tessarin::VideoEffectPlan
