#include "editing/CursorFollowPath.hpp"

#include "editing/CursorFollowTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace tessarin {
namespace {

using namespace followTesting;
using testing::ElementsAre;
using testing::IsEmpty;

// What a low-pass of 180 ms has left of a way after so many milliseconds.
double left(double elapsedMs) {
  return std::exp(-elapsedMs / 180);
}

TEST(CursorFollowPath, TellsWhichFreezeHoldsThePictureWhen) {
  const std::vector<FreezeVideoEffectDTO> freezes = {freezeOf(100, 500, "a"), freezeOf(200, 300, "b"),
                                                     freezeOf(500, 600, "c"), freezeOf(50, 250, "d"),
                                                     freezeOf(550, 600, "e")};
  std::vector<std::pair<std::int64_t, std::string>> changes;
  for (const FreezeChange& change : freezeChanges(freezes))
    changes.emplace_back(change.atMs, change.freeze == nullptr ? "" : change.freeze->id);
  using Change = std::pair<std::int64_t, std::string>;
  EXPECT_THAT(changes, ElementsAre(Change(50, "d"), Change(100, "d"), Change(200, "d"), Change(250, "b"),
                                   Change(300, "a"), Change(500, "c"), Change(550, "e"), Change(600, "")));
  EXPECT_THAT(freezeChanges({}), IsEmpty());
}

TEST(CursorFollowPath, SamplesEverySixteenMillisecondsAndAtTheEnd) {
  ZoomVideoEffectDTO one = following();
  one.endMs = 1048;
  EXPECT_THAT(timesOf(spansOf(planOf(one, {})).at(0)), ElementsAre(1000, 1016, 1032, 1048));
  one.endMs = 1050;
  EXPECT_THAT(timesOf(spansOf(planOf(one, {})).at(0)), ElementsAre(1000, 1016, 1032, 1048, 1050));
  one.endMs = 1001;
  EXPECT_THAT(timesOf(spansOf(planOf(one, {})).at(0)), ElementsAre(1000, 1001));
}

TEST(CursorFollowPath, SamplesWhereFreezesBeginAndEnd) {
  ZoomVideoEffectDTO one = following();
  one.endMs = 1040;
  // The bounds of the span and what lies outside of it add nothing, and nothing is there twice.
  const Setting setting{.freezes = {freezeOf(1016, 1020), freezeOf(1010, 1020), freezeOf(500, 1000),
                                    freezeOf(1040, 1100), freezeOf(1, 2)}};
  EXPECT_THAT(timesOf(spansOf(planOf(one, {}, setting)).at(0)),
              ElementsAre(1000, 1010, 1016, 1020, 1032, 1040));
}

TEST(CursorFollowPath, MakesASpanOfEachClipThatItTouches) {
  const Setting setting{.clips = {{0, 1000, 1}, {0, 500, 1}, {0, 3000, 2}, {0, 1000, 1}, {0, 1000, 1}}};
  const std::vector<Span> spans = spansOf(planOf(following(), {}, setting)); // clips from 1000, 1500, 3000
  ASSERT_EQ(spans.size(), 2U);
  EXPECT_EQ(spans[0].start, 1000);
  EXPECT_EQ(spans[0].end, 1500);
  EXPECT_EQ(spans[1].start, 1500);
  EXPECT_EQ(spans[1].end, 3000);
  for (const Span& span : spans) {
    EXPECT_EQ(span.samples.front().time, span.start);
    EXPECT_EQ(span.samples.back().time, span.end);
  }
  // Behind all clips there is nothing to follow on.
  EXPECT_THAT(planOf(following(), {}, {.clips = {{0, 1000, 1}}}).paths(), IsEmpty());
}

TEST(CursorFollowPath, BeginsAtItsCenterWithinTheContent) {
  const struct {
    NormalizedVideoPointDTO center;
    double scale;
    NormalizedVideoPointDTO focus;
  } cases[] = {{{0.5, 0.5}, 2, {0.5, 0.5}},  {{0, 0}, 4, {0.125, 0.125}},     {{1, 0.5}, 4, {0.875, 0.5}},
               {{0.3, 0.8}, 2, {0.3, 0.75}}, {{0.24, 0.76}, 2, {0.25, 0.75}}, {{0.4, 0.6}, 1.25, {0.4, 0.6}}};
  for (const auto& each : cases) {
    const Span span = spansOf(planOf(following(each.center, each.scale), {})).at(0);
    const VideoZoomTransform transform = at(span, 2024); // all of its scale
    EXPECT_EQ(transform.scale, each.scale);
    EXPECT_NEAR(focusOf(transform).x, each.focus.x, tolerance);
    EXPECT_NEAR(focusOf(transform).y, each.focus.y, tolerance);
  }
}

TEST(CursorFollowPath, GrowsAndShrinksLikeAFixedZoom) {
  const Span span = spansOf(planOf(following(), {})).at(0);
  EXPECT_EQ(at(span, 1000), VideoZoomTransform{});
  EXPECT_EQ(at(span, 3000), VideoZoomTransform{});
  for (const std::int64_t time : {1016, 1112, 1256, 2008, 2760, 2984})
    EXPECT_EQ(at(span, time).scale, fixedZoomTransform(zoom(), time).scale) << time;
}

TEST(CursorFollowPath, ClampsToWhatTheScaleShows) {
  // The whole scale lets the focus go to 0.125; on the way in, at a scale of 2.5, only to 0.2.
  const Span span = spansOf(planOf(following({0, 1}, 4), {})).at(0);
  const VideoZoomTransform wayIn = fixedZoomTransform(following({0, 0}, 4), 1128);
  EXPECT_EQ(at(span, 1128).scale, wayIn.scale);
  EXPECT_NEAR(at(span, 1128).x, 0, tolerance);
  EXPECT_NEAR(at(span, 1128).y, 1 - wayIn.scale, tolerance);
  EXPECT_NEAR(at(span, 2024).x, 0, tolerance);
  EXPECT_NEAR(at(span, 2024).y, -3, tolerance);
}

TEST(CursorFollowPath, GlidesAfterAPointerThatLeavesTheMiddle) {
  // At twice the size the pointer is left alone within an eighth of the content to either side.
  const struct {
    double pointer;
    double target; // of the focus
  } cases[] = {{1, 0.75}, {0.8, 0.675}, {0.9, 0.75}, {0.1, 0.25}, {0.3, 0.425}, {0.64, 0.515}};
  for (const auto& each : cases) {
    const Span span = spansOf(planOf(following(), resting(each.pointer, 1 - each.pointer))).at(0);
    // Nothing has moved at the first sample, since no time is over.
    for (const std::int64_t time : {1256, 1400, 2008, 2744}) {
      const NormalizedVideoPointDTO focus = focusOf(at(span, time));
      const double expected = each.target + (0.5 - each.target) * left(static_cast<double>(time - 1000));
      EXPECT_NEAR(focus.x, expected, tolerance) << each.pointer << " at " << time;
      EXPECT_NEAR(focus.y, 1 - expected, tolerance) << each.pointer << " at " << time;
    }
  }
}

TEST(CursorFollowPath, RestsWhileThePointerIsInTheMiddleHalf) {
  const VideoZoomTransform untouched{2, -0.5, -0.5};
  const struct {
    NormalizedVideoPointDTO pointer;
    bool rests;
  } cases[] = {{{0.5, 0.5}, true},     {{0.625, 0.375}, true}, {{0.375, 0.625}, true}, {{0.6251, 0.5}, false},
               {{0.3749, 0.5}, false}, {{0.5, 0.6251}, false}, {{0.5, 0.3749}, false}};
  for (const auto& each : cases) {
    const Span span = spansOf(planOf(following(), resting(each.pointer.x, each.pointer.y))).at(0);
    EXPECT_EQ(at(span, 2008) == untouched, each.rests) << each.pointer.x << ' ' << each.pointer.y;
  }
}

TEST(CursorFollowPath, NeverLeavesTheContent) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> place(-0.2, 1.2);
  Pointer pointer;
  for (std::int64_t time = 0; time < 10'000; time += 33)
    pointer.push_back({time, {place(random), place(random)}, std::nullopt});
  for (const double scale : {1.25, 2.0, 4.0}) {
    ZoomVideoEffectDTO one = following({place(random), place(random)}, scale);
    one.startMs = 0;
    one.endMs = 10'000;
    const Setting setting{.clips = {{0, 3000, 1}, {0, 7000, 1}}, .freezes = {freezeOf(4000, 5000)}};
    for (const Span& span : spansOf(planOf(one, pointer, setting)))
      for (const Sample& sample : span.samples) {
        const VideoZoomTransform& transform = sample.transform;
        for (const double offset : {transform.x, transform.y}) {
          ASSERT_LE(offset, tolerance) << sample.time;
          ASSERT_GE(offset, 1 - transform.scale - tolerance) << sample.time;
        }
      }
  }
}

// Whether the focus moved between the samples before this one and this one.
bool movedAt(const Span& span, std::int64_t time) {
  return focusOf(at(span, time)).x - focusOf(at(span, time - 16)).x > 1e-6;
}

TEST(CursorFollowPath, ForgetsAPointerThatWasNotSeenForLong) {
  // A sample at 1752.
  EXPECT_TRUE(movedAt(spansOf(planOf(following(), {{1002, {1, 0.5}, {}}})).at(0), 1752));
  EXPECT_FALSE(movedAt(spansOf(planOf(following(), {{1001, {1, 0.5}, {}}})).at(0), 1752));
  EXPECT_TRUE(movedAt(spansOf(planOf(following(), {{1001, {1, 0.5}, {}}})).at(0), 1736));
}

TEST(CursorFollowPath, FollowsAPointerThatThePictureShowsItself) {
  const Span span =
      spansOf(planOf(following(), {{1500, {1, 0.5}, InteractionCursorRendering::source}})).at(0);
  EXPECT_FALSE(movedAt(span, 1496));
  EXPECT_TRUE(movedAt(span, 1512));
}

TEST(CursorFollowPath, LooksAtTheNewestPlaceOnly) {
  // One that is beyond the crop does not give way to an older one.
  const Pointer pointer = {{1300, {1, 0.5}, {}}, {1504, {1.5, 0.5}, {}}, {1600, {1, 0.5}, {}}};
  const Span span = spansOf(planOf(following(), pointer)).at(0);
  const std::pair<std::int64_t, bool> cases[] = {{1288, false}, {1304, true},  {1496, true},
                                                 {1512, false}, {1592, false}, {1608, true}};
  for (const auto& [time, moves] : cases)
    EXPECT_EQ(movedAt(span, time), moves) << time;
}

TEST(CursorFollowPath, RestsWhileThePointerIsBeyondTheCrop) {
  const NormalizedVideoCropDTO crop{0.5, 0.25, 0.25, 0.5};
  const VideoZoomTransform untouched{2, -0.5, -0.5};
  const struct {
    NormalizedVideoPointDTO pointer;
    bool rests;
  } cases[] = {{{0.5, 0.5}, false},     {{0.75, 0.5}, false},   {{0.625, 0.25}, false},
               {{0.625, 0.75}, false},  {{0.4999, 0.5}, true},  {{0.7501, 0.5}, true},
               {{0.625, 0.2499}, true}, {{0.625, 0.7501}, true}};
  for (const auto& each : cases) {
    const auto plan = planOf(following(), resting(each.pointer.x, each.pointer.y), {.crop = crop});
    EXPECT_EQ(at(spansOf(plan).at(0), 2008) == untouched, each.rests)
        << each.pointer.x << ' ' << each.pointer.y;
  }
  // In parts of the crop: 0.7 is 0.8 of it.
  const Span span = spansOf(planOf(following(), resting(0.7, 0.5), {.crop = crop})).at(0);
  EXPECT_NEAR(focusOf(at(span, 2008)).x, 0.675 - 0.175 * left(1008), tolerance);
}

TEST(CursorFollowPath, TurnsPlacesThatCountUpwards) {
  const auto planWith = [](std::optional<InteractionCoordinateSpace> space) {
    InteractionCursorEvent event;
    event.timestampMs = 1000;
    event.x = 0.5;
    event.y = 0.9;
    event.coordinateSpace = space;
    InteractionClickEvent click; // says nothing about the pointer's way
    click.timestampMs = 1100;
    const InteractionEventIndex index({{event}, {click}, {InteractionShortcutEvent{}}});
    return planOf(following(), index.cursors());
  };
  const double way = 0.25 * (1 - left(400));
  const auto focusWith = [&](std::optional<InteractionCoordinateSpace> space) {
    return focusOf(at(spansOf(planWith(space)).at(0), 1400)).y;
  };
  EXPECT_NEAR(focusWith(InteractionCoordinateSpace::captureTopLeft), 0.5 + way, tolerance);
  EXPECT_NEAR(focusWith(std::nullopt), 0.5 - way, tolerance);
}

TEST(CursorFollowPath, FindsThePointerAtOnceBehindACut) {
  const Setting setting{.clips = {{0, 2000, 1}, {5000, 9000, 1}}};
  const auto secondAt2000 = [&](const Pointer& pointer) {
    return at(spansOf(planOf(following({0.4, 0.4}, 2), pointer, setting)).at(1), 2000);
  };
  const auto expectFocus = [](const VideoZoomTransform& transform, double x, double y) {
    EXPECT_EQ(transform.scale, 2);
    EXPECT_NEAR(focusOf(transform).x, x, tolerance);
    EXPECT_NEAR(focusOf(transform).y, y, tolerance);
  };
  expectFocus(secondAt2000({{2000, {0.6, 0.7}, {}}}), 0.6, 0.7);
  expectFocus(secondAt2000({{2000, {0.9, 0.1}, {}}}), 0.75, 0.25);
  expectFocus(secondAt2000({{2000, {0.1, 0.1}, {}}, {2000, {0.6, 0.7}, {}}}), 0.6, 0.7);
  // Seen before the cut, after it, or beyond the picture: as if the zoom began there.
  expectFocus(secondAt2000({{1999, {0.6, 0.7}, {}}}), 0.4, 0.4);
  expectFocus(secondAt2000({{2001, {0.6, 0.7}, {}}}), 0.4, 0.4);
  expectFocus(secondAt2000({{2000, {1.1, 0.7}, {}}}), 0.4, 0.4);
  // A zoom that begins with its clip begins at its center.
  const Setting inTime{.clips = {{0, 1000, 1}, {5000, 9000, 1}}};
  const Span span = spansOf(planOf(following({0.4, 0.4}, 2), {{1000, {0.5, 0.5}, {}}}, inTime)).at(0);
  expectFocus(at(span, 1256), 0.4, 0.4);
}

TEST(CursorFollowPath, NeverFollowsThePointerOfTheClipBefore) {
  const Setting setting{.clips = {{0, 2000, 1}, {5000, 9000, 1}}};
  const std::vector<Span> spans = spansOf(planOf(following(), resting(1, 0.5, 0, 1999), setting));
  EXPECT_GT(focusOf(at(spans.at(0), 1992)).x, 0.74);
  for (const std::int64_t time : {2000, 2016, 2400, 2704})
    EXPECT_EQ(at(spans.at(1), time), (VideoZoomTransform{2, -0.5, -0.5})) << time;
}

TEST(CursorFollowPath, HoldsStillThroughAFreeze) {
  const Span span = spansOf(planOf(following(), resting(1, 0.5), {.freezes = {freezeOf(2000, 2500)}})).at(0);
  const VideoZoomTransform held = at(span, 1992);
  EXPECT_NEAR(focusOf(held).x, 0.75 - 0.25 * left(992), tolerance);
  for (const Sample& sample : span.samples) {
    if (sample.time >= 2000 && sample.time < 2500) {
      EXPECT_EQ(sample.transform, held) << sample.time;
    }
  }
  // Only the last step of twelve milliseconds counts when it goes on.
  EXPECT_NEAR(focusOf(at(span, 2500)).x, 0.75 - 0.25 * left(992 + 12), tolerance);
  EXPECT_NEAR(focusOf(at(span, 2504)).x, 0.75 - 0.25 * left(992 + 16), tolerance);
}

TEST(CursorFollowPath, HoldsTheScaleToo) {
  const Span span = spansOf(planOf(following(), {}, {.freezes = {freezeOf(1100, 1700)}})).at(0);
  EXPECT_EQ(at(span, 1096).scale, fixedZoomTransform(zoom(), 1096).scale);
  EXPECT_EQ(at(span, 1100), at(span, 1096));
  EXPECT_EQ(at(span, 1688), at(span, 1096));
  EXPECT_EQ(at(span, 1700).scale, 2);
  // What is frozen from its first moment on stays as that moment has it.
  const Span late = spansOf(planOf(following(), {}, {.freezes = {freezeOf(500, 1500)}})).at(0);
  EXPECT_EQ(at(late, 1000), VideoZoomTransform{});
  EXPECT_EQ(at(late, 1496), VideoZoomTransform{});
  EXPECT_EQ(at(late, 1500).scale, 2);
  const Setting cut{.clips = {{0, 2000, 1}, {5000, 9000, 1}}, .freezes = {freezeOf(1900, 2200)}};
  const std::vector<Span> spans = spansOf(planOf(following(), {{2000, {0.7, 0.5}, {}}}, cut));
  EXPECT_EQ(at(spans.at(1), 2000), at(spans.at(1), 2192));
  EXPECT_NEAR(focusOf(at(spans.at(1), 2192)).x, 0.7, tolerance);
}

TEST(CursorFollowPath, HoldsThroughFreezesThatMeetOrOverlap) {
  const std::vector<FreezeVideoEffectDTO> cases[] = {
      {freezeOf(1500, 1800, "a"), freezeOf(1800, 2100, "b")},
      {freezeOf(1500, 2100, "a"), freezeOf(1700, 1800, "b")},
      {freezeOf(1700, 1800, "a"), freezeOf(1500, 2100, "b")},
      {freezeOf(1700, 2100, "a"), freezeOf(1500, 1900, "b")},
  };
  for (const auto& freezes : cases) {
    const Span span = spansOf(planOf(following(), resting(1, 0.5), {.freezes = freezes})).at(0);
    const VideoZoomTransform held = at(span, 1496);
    for (const Sample& sample : span.samples) {
      if (sample.time >= 1500 && sample.time < 2100) {
        EXPECT_EQ(sample.transform, held) << sample.time;
      }
    }
    EXPECT_NE(at(span, 2100), held);
  }
}

} // namespace
} // namespace tessarin
