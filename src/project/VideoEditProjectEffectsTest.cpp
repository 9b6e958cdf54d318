#include "project/VideoEditProject.hpp"

#include "project/EditValidationTesting.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

using namespace editTesting;

TEST(VideoEditProjectEffects, ChecksWhenEffectsAre) {
  const auto zoomFrom = [](std::int64_t startMs, std::int64_t endMs) {
    return [=](Project& project) {
      ZoomVideoEffectDTO one = zoom();
      one.startMs = startMs;
      one.endMs = endMs;
      project.overlays = {effect<Kind::zoom>(one)};
    };
  };
  Project project = plainProject();
  // 501 ms of output and 200 more.
  project.clips = {clip("a", 0, 1001, 2), clip("b", 2000, 2100, 0.5)};
  expectAll(project,
            {{"all of it", zoomFrom(0, 701), passes},
             {"past the end", zoomFrom(0, 702), fails},
             {"before the beginning", zoomFrom(-1, 500), fails},
             {"100 ms", zoomFrom(601, 701), passes},
             {"99 ms", zoomFrom(602, 701), fails},
             {"backwards", zoomFrom(500, 100), fails},
             {"backwards as far as can be", zoomFrom(5, std::numeric_limits<std::int64_t>::min()), fails}});
}

TEST(VideoEditProjectEffects, ChecksTheNamesOfEffects) {
  const auto ids = [](const std::vector<std::string>& list) {
    return [list](Project& project) {
      project.overlays.clear();
      for (const std::string& id : list) {
        NumberVideoEffectDTO one = number();
        one.id = id;
        project.overlays.push_back(effect<Kind::number>(one));
      }
    };
  };
  std::string accented;
  for (int i = 0; i < 128; ++i)
    accented += "e\u0301";
  expectAll(plainProject(), {{"none", ids({""}), fails},
                             {"two", ids({"a", "b"}), passes},
                             {"one twice", ids({"a", "b", "a"}), fails},
                             {"128 letters", ids({std::string(128, 'x')}), passes},
                             {"129 letters", ids({std::string(129, 'x')}), fails},
                             {"128 letters with accents, 384 bytes", ids({accented}), passes},
                             {"129 letters with accents", ids({accented + "x"}), fails}});
}

TEST(VideoEditProjectEffects, ChecksWhatEffectsHold) {
  NumberVideoEffectDTO wrong = number();
  wrong.value = 1000;
  expectAll(
      plainProject(),
      {{"a number", [&](Project& project) { project.overlays = {effect<Kind::number>(wrong)}; }, fails}});
  // A frozen moment lies in the source, however short the output is.
  Project brief = plainProject();
  brief.clips = {clip("a", 0, 5000)};
  const auto frozenAt = [](std::int64_t timeMs) {
    return [timeMs](Project& project) {
      FreezeVideoEffectDTO one = freeze();
      one.sourceTimeMs = timeMs;
      project.overlays = {effect<Kind::freeze>(one)};
    };
  };
  expectAll(brief, {{"past the output", frozenAt(3'599'999), passes},
                    {"past the source", frozenAt(3'600'000), fails}});
}

InteractionVideoEffectDTO interactionNamed(const std::string& id, const std::string& path = interactionPath) {
  InteractionVideoEffectDTO one = interaction();
  one.id = id;
  one.sourcePath = path;
  return one;
}

TEST(VideoEditProjectEffects, ChecksTheTrace) {
  const auto path = [](const std::string& to) {
    return
        [to](Project& project) { project.overlays = {effect<Kind::interaction>(interactionNamed("i", to))}; };
  };
  expectAll(plainProject(),
            {{"beside the recording", path(interactionPath), passes},
             {"elsewhere", path("/rec/interaction-events.jsonl"), fails},
             {"further down", path(session + "/exports/interaction-events.jsonl"), fails},
             {"by a way around", path(session + "/../" + sessionID + "/interaction-events.jsonl"), fails},
             {"relative", path(interactionPath.substr(1)), fails},
             {"another name", path(session + "/events.jsonl"), fails},
             {"two",
              [](Project& project) {
                project.overlays = {effect<Kind::interaction>(interactionNamed("i")),
                                    effect<Kind::interaction>(interactionNamed("j"))};
              },
              fails},
             {"two, one of them hidden",
              [](Project& project) {
                InteractionVideoEffectDTO hidden = interactionNamed("i");
                hidden.visible = false;
                project.overlays = {effect<Kind::interaction>(hidden),
                                    effect<Kind::interaction>(interactionNamed("j"))};
              },
              fails}});
}

// So many zooms of so many milliseconds each.
std::function<void(Project&)> zooms(std::size_t count, std::int64_t lengthMs, std::optional<bool> follow,
                                    bool withTrace = true, bool traceIsVisible = true) {
  return [=](Project& project) {
    for (std::size_t i = 0; i < count; ++i) {
      ZoomVideoEffectDTO one = zoom();
      one.id = std::to_string(i);
      one.startMs = 0;
      one.endMs = lengthMs;
      one.followCursor = follow;
      project.overlays.push_back(effect<Kind::zoom>(one));
    }
    if (!withTrace)
      return;
    InteractionVideoEffectDTO trace = interaction();
    trace.visible = traceIsVisible;
    project.overlays.push_back(effect<Kind::interaction>(trace));
  };
}

TEST(VideoEditProjectEffects, ChecksZoomsThatFollowThePointer) {
  expectAll(plainProject(), {{"with a trace", zooms(1, 1000, true), passes},
                             {"with a hidden trace", zooms(1, 1000, true, true, false), passes},
                             {"without a trace", zooms(1, 1000, true, false), fails},
                             {"not following, without a trace", zooms(1, 1000, false, false), passes},
                             {"unsaid, without a trace", zooms(1, 1000, std::nullopt, false), passes},
                             {"128", zooms(128, 100, true), passes},
                             {"129", zooms(129, 100, true), fails},
                             {"1000 that do not follow", zooms(1000, 100, false), passes},
                             {"two hours", zooms(2, 3'600'000, true), passes},
                             {"two hours of short ones", zooms(100, 72'000, true), passes},
                             {"more than two hours",
                              [](Project& project) {
                                zooms(2, 3'599'999, true)(project);
                                ZoomVideoEffectDTO one = zoom();
                                one.followCursor = true;
                                one.startMs = 0;
                                one.endMs = 103;
                                project.overlays.push_back(effect<Kind::zoom>(one));
                              },
                              fails},
                             {"hours that do not follow", zooms(5, 3'600'000, false), passes}});
  Project endless = plainProject();
  endless.source.durationMs = std::int64_t{1} << 61;
  endless.clips = {clip("a", 0, std::int64_t{1} << 61)};
  expectAll(endless, {{"more than numbers hold", zooms(128, std::int64_t{1} << 61, true), fails}});
}

TEST(VideoEditProjectEffects, ChecksTheCover) {
  Project project = plainProject();
  project.clips = {clip("a", 0, 1000, 2)};
  const auto cover = [](std::int64_t ms) { return [ms](Project& changed) { changed.coverFrameMs = ms; }; };
  expectAll(project, {{"the first", cover(0), passes},
                      {"before it", cover(-1), fails},
                      {"the last", cover(499), passes},
                      {"past it", cover(500), fails}});
}

} // namespace
} // namespace tessarin
