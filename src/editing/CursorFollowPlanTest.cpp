#include "editing/CursorFollowPlan.hpp"

#include "editing/CursorFollowTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace followTesting;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(CursorFollowPlan, IsEmptyWhereNothingFollows) {
  ZoomVideoEffectDTO fixed = zoom();
  for (const std::optional<bool> followCursor : {std::optional<bool>(), std::optional(false)}) {
    fixed.followCursor = followCursor;
    const CursorFollowPlan plan = planOf(fixed, resting(0.9, 0.9), {.freezes = {freezeOf(1000, 2000)}});
    EXPECT_THAT(plan.paths(), IsEmpty());
    EXPECT_THAT(plan.clipBounds(), IsEmpty());
    EXPECT_THAT(plan.freezes(), IsEmpty());
    for (const std::int64_t time : {0, 1000, 1500, 9999})
      EXPECT_EQ(plan.cameraTime(time), time);
    EXPECT_EQ(plan.transform(&fixed, 2000), (VideoZoomTransform{2, -0.5, -0.5}));
  }
}

TEST(CursorFollowPlan, LaysClipsEndToEndAndKeepsFreezesAsListed) {
  const CursorFollowPlan plan = planOf(following(), {},
                                       {.clips = {{0, 1000, 3}, {5000, 6001, 2}, {7000, 7100, 0.5}},
                                        .freezes = {freezeOf(300, 400, "b"), freezeOf(0, 100, "a")}});
  using Bound = CursorFollowPlan::ClipBound;
  EXPECT_THAT(plan.clipBounds(), ElementsAre(Bound{0, 333}, Bound{333, 834}, Bound{834, 1034}));
  EXPECT_THAT(plan.freezes(), ElementsAre(freezeOf(300, 400, "b"), freezeOf(0, 100, "a")));
}

TEST(CursorFollowPlan, KeepsAPathForEachZoom) {
  ZoomVideoEffectDTO late = following("late");
  late.startMs = 5000;
  late.endMs = 6000;
  const std::vector<VideoEditEffectDTO> effects = {effect<Kind::zoom>(late), effect<Kind::text>(text()),
                                                   effect<Kind::zoom>(zoom()),
                                                   effect<Kind::zoom>(following("early"))};
  const CursorFollowPlan plan({{0, 10'000, 1}}, effects, whole, {});
  ASSERT_EQ(plan.paths().size(), 2U);
  EXPECT_EQ(plan.paths().at("late").at(0).start, 5000);
  EXPECT_EQ(plan.paths().at("early").at(0).start, 1000);
}

TEST(CursorFollowPlan, GoesEvenlyFromSampleToSample) {
  const ZoomVideoEffectDTO one = following();
  const CursorFollowPlan plan = planOf(one, resting(1, 0));
  const Span span = spansOf(plan).at(0);
  const VideoZoomTransform from = at(span, 1096);
  const VideoZoomTransform to = at(span, 1112);
  EXPECT_EQ(plan.transform(&one, 1096), from);
  EXPECT_EQ(plan.transform(&one, 1112), to);
  for (const int share : {1, 8, 15}) {
    const VideoZoomTransform between = plan.transform(&one, 1096 + share);
    EXPECT_NEAR(between.scale, from.scale + (to.scale - from.scale) * share / 16, tolerance);
    EXPECT_NEAR(between.x, from.x + (to.x - from.x) * share / 16, tolerance);
    EXPECT_NEAR(between.y, from.y + (to.y - from.y) * share / 16, tolerance);
  }
  EXPECT_EQ(plan.transform(&one, 999), VideoZoomTransform{});
  EXPECT_EQ(plan.transform(&one, 1000), VideoZoomTransform{});
  EXPECT_EQ(plan.transform(&one, 3000), VideoZoomTransform{});
  EXPECT_EQ(plan.transform(nullptr, 2000), VideoZoomTransform{});
}

TEST(CursorFollowPlan, TakesEachClipsOwnSpan) {
  const ZoomVideoEffectDTO one = following();
  const Setting setting{.clips = {{0, 2000, 1}, {5000, 9000, 1}}};
  const CursorFollowPlan plan = planOf(one, {{2000, {0.75, 0.5}, {}}}, setting);
  EXPECT_EQ(plan.transform(&one, 1999).scale, 2);
  // Towards the sample at the cut, which belongs to the clip before it.
  EXPECT_NEAR(plan.transform(&one, 1999).x, -0.5, 0.01);
  EXPECT_EQ(plan.transform(&one, 2000), (VideoZoomTransform{2, -1, -0.5}));
}

TEST(CursorFollowPlan, LeavesAZoomWithoutAPathWhereItIs) {
  const CursorFollowPlan plan = planOf(following(), resting(1, 1));
  ZoomVideoEffectDTO other = zoom();
  other.id = "other";
  other.center = {0.25, 0.75};
  EXPECT_EQ(plan.transform(&other, 2000), (VideoZoomTransform{2, -0.25, -0.75}));
  EXPECT_EQ(plan.transform(&other, 1125), fixedZoomTransform(other, 1125));
  // Behind the last clip, too.
  const ZoomVideoEffectDTO one = following({0.25, 0.75}, 2);
  const CursorFollowPlan shorter = planOf(one, {}, {.clips = {{0, 2000, 1}}});
  EXPECT_EQ(shorter.transform(&one, 2400), (VideoZoomTransform{2, -0.25, -0.75}));
}

TEST(CursorFollowPlan, TellsSinceWhenThePictureIsFrozen) {
  const Setting setting{
      .clips = {{0, 2000, 1}, {5000, 7000, 1}},
      .freezes = {freezeOf(1000, 2500, "a"), freezeOf(1200, 1400, "b"), freezeOf(3900, 5000, "c")}};
  const CursorFollowPlan plan = planOf(following(), {}, setting);
  const std::pair<std::int64_t, std::int64_t> cases[] = {{0, 0},
                                                         {999, 999},
                                                         {1000, 1000},
                                                         {1199, 1000},
                                                         {1200, 1200},
                                                         {1399, 1200},
                                                         {1400, 1000},
                                                         {1999, 1000},
                                                         {2000, 2000},
                                                         {2499, 2000},
                                                         {2500, 2500},
                                                         {3899, 3899},
                                                         {3999, 3900},
                                                         // Behind all clips.
                                                         {4000, 4000},
                                                         {4500, 4500},
                                                         {5000, 5000}};
  for (const auto& [time, expected] : cases)
    EXPECT_EQ(plan.cameraTime(time), expected) << time;
  EXPECT_EQ(CursorFollowPlan().cameraTime(1500), 1500);
}

} // namespace
} // namespace tessarin
