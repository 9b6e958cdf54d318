#pragma once

#include "editing/CursorFollowPlan.hpp"
#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

// Zooms that follow a pointer, and pieces to look at their ways with, for tests.
namespace tessarin::followTesting {

using namespace editTesting;
using Pointer = std::vector<InteractionCursorSample>;
using Span = CursorFollowPlan::Span;
using Sample = CursorFollowPlan::Sample;

inline constexpr NormalizedVideoCropDTO whole{0, 0, 1, 1};
inline constexpr double tolerance = 1e-12;

// From 1000 to 3000 at twice the size, where nothing says otherwise; all of its scale from 1250 to 2750.
inline ZoomVideoEffectDTO following(std::string id = "zoom") {
  ZoomVideoEffectDTO one = zoom();
  one.id = std::move(id);
  one.followCursor = true;
  return one;
}

inline ZoomVideoEffectDTO following(NormalizedVideoPointDTO center, double scale) {
  ZoomVideoEffectDTO one = following();
  one.center = center;
  one.scale = scale;
  return one;
}

inline FreezeVideoEffectDTO freezeOf(std::int64_t startMs, std::int64_t endMs, std::string id = "freeze") {
  FreezeVideoEffectDTO one = freeze();
  one.id = std::move(id);
  one.startMs = startMs;
  one.endMs = endMs;
  return one;
}

// At one place, seen as often as it has to be.
inline Pointer resting(double x, double y, std::int64_t fromMs = 0, std::int64_t toMs = 10'000) {
  Pointer pointer;
  for (std::int64_t time = fromMs; time <= toMs; time += 100)
    pointer.push_back({time, {x, y}, std::nullopt});
  return pointer;
}

struct Setting {
  std::vector<ClipSpan> clips = {{0, 10'000, 1}};
  std::vector<FreezeVideoEffectDTO> freezes = {};
  NormalizedVideoCropDTO crop = whole;
};

inline CursorFollowPlan planOf(const ZoomVideoEffectDTO& zoom, const Pointer& pointer,
                               const Setting& setting = Setting()) {
  std::vector<VideoEditEffectDTO> effects = {effect<Kind::zoom>(zoom)};
  for (const FreezeVideoEffectDTO& each : setting.freezes)
    effects.push_back(effect<Kind::freeze>(each));
  return {setting.clips, effects, setting.crop, pointer};
}

// Of the zoom "zoom".
inline std::vector<Span> spansOf(const CursorFollowPlan& plan) {
  const auto found = plan.paths().find("zoom");
  return found == plan.paths().end() ? std::vector<Span>() : found->second;
}

inline std::vector<std::int64_t> timesOf(const Span& span) {
  std::vector<std::int64_t> times;
  for (const Sample& sample : span.samples)
    times.push_back(sample.time);
  return times;
}

inline VideoZoomTransform at(const Span& span, std::int64_t time) {
  for (const Sample& sample : span.samples)
    if (sample.time == time)
      return sample.transform;
  ADD_FAILURE() << "no sample at " << time;
  return {};
}

// The middle of what is shown.
inline NormalizedVideoPointDTO focusOf(const VideoZoomTransform& transform) {
  return {(0.5 - transform.x) / transform.scale, (0.5 - transform.y) / transform.scale};
}

} // namespace tessarin::followTesting
