#pragma once

#include "editing/VideoZoomTransform.hpp"
#include "model/ClipSpan.hpp"
#include "project/VideoEditProject.hpp"
#include "trace/InteractionEventIndex.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tessarin {

// How the zooms that follow the pointer move, worked out before the first frame is asked for, so that a frame
// does not depend on those before it. All times are milliseconds of the output. Immutable, so readable from
// any number of threads.
//
// The pointer may move freely in the middle half of what is shown; where it leaves that, what is shown glides
// after it, by the way of a first-order low-pass with a time constant of 180 ms. It never reaches beyond the
// content, rests while a freeze holds the picture, and starts anew with each clip.
class CursorFollowPlan {
 public:
  struct Sample {
    std::int64_t time = 0;
    VideoZoomTransform transform;

    bool operator==(const Sample&) const = default;
  };
  // One zoom within one clip. The samples rise in time; the first is at the start, the last at the end.
  struct Span {
    std::int64_t start = 0;
    std::int64_t end = 0; // exclusive
    std::vector<Sample> samples;

    bool operator==(const Span&) const = default;
  };
  struct ClipBound {
    std::int64_t start = 0;
    std::int64_t end = 0; // exclusive

    bool operator==(const ClipBound&) const = default;
  };

  // Without anything in it.
  CursorFollowPlan() = default;
  // Of the project's clips, its effects in the output, its crop, and the pointer's way on the output, in
  // order of time. Without anything in it where no zoom follows the pointer.
  CursorFollowPlan(const std::vector<ClipSpan>& clips, const std::vector<VideoEditEffectDTO>& effects,
                   const NormalizedVideoCropDTO& crop, const std::vector<InteractionCursorSample>& pointer);

  // End to end from 0.
  const std::vector<ClipBound>& clipBounds() const { return clipBounds_; }
  // As they are listed.
  const std::vector<FreezeVideoEffectDTO>& freezes() const { return freezes_; }
  // By the zoom's id, in order of time.
  const std::map<std::string, std::vector<Span>>& paths() const { return paths_; }

  // What a zoom shows at a moment; all of the content for none. A zoom or a moment without a path is fixed.
  VideoZoomTransform transform(const ZoomVideoEffectDTO* zoom, std::int64_t atMs) const;

  // The moment whose zoom is to be seen: where a freeze holds the picture, that at which it began to in this
  // clip, and else the moment itself.
  std::int64_t cameraTime(std::int64_t atMs) const;

 private:
  std::vector<ClipBound> clipBounds_;
  std::vector<FreezeVideoEffectDTO> freezes_;
  std::map<std::string, std::vector<Span>> paths_;
};

} // namespace tessarin
