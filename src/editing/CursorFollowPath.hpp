#pragma once

#include "editing/CursorFollowPlan.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace tessarin {

// From this moment on the freeze holds the picture, or none does.
struct FreezeChange {
  std::int64_t atMs = 0;
  const FreezeVideoEffectDTO* freeze = nullptr;
};

// All moments at which a freeze begins or ends, in order, each once. Of several freezes at once the last in
// the list counts. The pointers are into the list.
std::vector<FreezeChange> freezeChanges(const std::vector<FreezeVideoEffectDTO>& freezes);

// Computes the way of one zoom, clip by clip. What it is given outlives it. Any thread.
class CursorFollowPath {
 public:
  CursorFollowPath(const ZoomVideoEffectDTO& zoom, const NormalizedVideoCropDTO& crop,
                   const std::vector<InteractionCursorSample>& pointer,
                   const std::vector<FreezeChange>& freezes)
      : zoom_(zoom), crop_(crop), pointer_(pointer), freezes_(freezes) {}

  // A span for each clip that the zoom is seen in.
  std::vector<CursorFollowPlan::Span> spans(const std::vector<CursorFollowPlan::ClipBound>& clips) const;

 private:
  struct SeenPointer {
    std::int64_t timeMs = 0;
    NormalizedVideoPointDTO point; // of the crop
  };

  CursorFollowPlan::Span span(const CursorFollowPlan::ClipBound& clip, std::int64_t start,
                              std::int64_t end) const;
  std::vector<std::int64_t> sampleTimes(std::int64_t start, std::int64_t end) const;
  const FreezeVideoEffectDTO* freezeAt(std::int64_t atMs) const;
  std::optional<SeenPointer> pointerAt(const CursorFollowPlan::ClipBound& clip, std::int64_t atMs) const;
  // The middle of what is shown, as a place of the content: where a clip begins, and later.
  NormalizedVideoPointDTO startingFocus(const CursorFollowPlan::ClipBound& clip, std::int64_t start) const;
  NormalizedVideoPointDTO movedFocus(const NormalizedVideoPointDTO& focus,
                                     const CursorFollowPlan::ClipBound& clip, std::int64_t fromMs,
                                     std::int64_t atMs) const;
  VideoZoomTransform transformAt(const NormalizedVideoPointDTO& focus, std::int64_t atMs) const;

  const ZoomVideoEffectDTO& zoom_;
  const NormalizedVideoCropDTO& crop_;
  const std::vector<InteractionCursorSample>& pointer_;
  const std::vector<FreezeChange>& freezes_;
};

} // namespace tessarin
