#include "project/VideoEffectPlan.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace editTesting;
using namespace VideoEffectPlan;
using Names = std::vector<std::string>;

template<Kind K>
VideoEditEffectDTO named(VideoEditEffectDTO::RecordOf<K> record, std::string id, std::int64_t startMs = 1000,
                         std::int64_t endMs = 3000) {
  record.id = std::move(id);
  record.startMs = startMs;
  record.endMs = endMs;
  return effect<K>(std::move(record));
}

Names activeNames(const std::vector<VideoEditEffectDTO>& effects, std::int64_t atMs) {
  Names names;
  for (const VideoEditEffectDTO* one : active(effects, atMs))
    names.push_back(one->id());
  return names;
}

TEST(VideoEffectPlan, ShowsFromTheStartToBeforeTheEnd) {
  for (const VideoEditEffectDTO& each : everyEffect()) {
    const std::vector<VideoEditEffectDTO> effects = {each};
    EXPECT_EQ(activeNames(effects, each.startMs() - 1), Names{}) << each.id();
    EXPECT_EQ(activeNames(effects, each.startMs()), Names{each.id()});
    EXPECT_EQ(activeNames(effects, each.endMs() - 1), Names{each.id()});
    EXPECT_EQ(activeNames(effects, each.endMs()), Names{}) << each.id();
  }
}

TEST(VideoEffectPlan, PaintsByKindAndThenByTheList) {
  const std::vector<VideoEditEffectDTO> effects = {named<Kind::interaction>(interaction(), "9"),
                                                   named<Kind::number>(number(), "8"),
                                                   named<Kind::text>(text(), "7"),
                                                   named<Kind::arrow>(arrow(), "6"),
                                                   named<Kind::ellipse>(shape(), "5a"),
                                                   named<Kind::rectangle>(shape(), "5b"),
                                                   named<Kind::ellipse>(shape(), "5c"),
                                                   named<Kind::highlight>(highlight(), "4"),
                                                   named<Kind::redaction>(redaction(), "3"),
                                                   named<Kind::zoom>(zoom(), "2"),
                                                   named<Kind::freeze>(freeze(), "1a"),
                                                   named<Kind::freeze>(freeze(), "1b")};
  EXPECT_EQ(activeNames(effects, 2000),
            (Names{"1a", "1b", "2", "3", "4", "5a", "5b", "5c", "6", "7", "8", "9"}));
}

TEST(VideoEffectPlan, YieldsTheListsOwnEffects) {
  const std::vector<VideoEditEffectDTO> effects = {named<Kind::text>(text(), "t"),
                                                   named<Kind::highlight>(highlight(), "h")};
  const auto shown = active(effects, 1000);
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_EQ(shown[0], &effects[1]);
  EXPECT_EQ(shown[1], &effects[0]);
  EXPECT_TRUE(active({}, 0).empty());
}

TEST(VideoEffectPlan, LeavesOutTextsThatAreHidden) {
  const std::pair<std::optional<bool>, bool> cases[] = {{std::nullopt, true}, {true, true}, {false, false}};
  for (const auto& [visible, isShown] : cases) {
    TextVideoEffectDTO one = text();
    one.visible = visible;
    EXPECT_EQ(active({effect<Kind::text>(one)}, 2000).size(), isShown ? 1U : 0U);
  }
  // Of other kinds nothing is asked.
  InteractionVideoEffectDTO hidden = interaction();
  hidden.visible = false;
  EXPECT_EQ(active({effect<Kind::interaction>(hidden)}, 2000).size(), 1U);
}

ZoomVideoEffectDTO zoomOf(std::int64_t startMs, std::int64_t endMs, double scale) {
  ZoomVideoEffectDTO one = zoom();
  one.startMs = startMs;
  one.endMs = endMs;
  one.scale = scale;
  return one;
}

TEST(VideoEffectPlan, ZoomsInAndOutWithinAQuarterOfASecond) {
  const ZoomVideoEffectDTO one = zoomOf(1000, 3000, 3);
  const std::pair<std::int64_t, double> cases[] = {{0, 1},
                                                   {999, 1},
                                                   {1000, 1},
                                                   {1125, 2},
                                                   {1250, 3},
                                                   {2000, 3},
                                                   {2750, 3},
                                                   {2875, 2},
                                                   {3000, 1},
                                                   {4000, 1},
                                                   // A fifth of the way: 0.2² (3 - 0.4) = 0.104 of the two.
                                                   {1050, 1.208},
                                                   {2950, 1.208},
                                                   {1200, 2.792},
                                                   {2800, 2.792}};
  for (const auto& [atMs, scale] : cases)
    EXPECT_NEAR(zoomScale(one, atMs), scale, 1e-12) << atMs;
  EXPECT_EQ(zoomScale(one, 1000), 1.0);
  EXPECT_EQ(zoomScale(one, 3000), 1.0);
}

TEST(VideoEffectPlan, ZoomsAShortWayInHalfItsLength) {
  const ZoomVideoEffectDTO shortest = zoomOf(1000, 1100, 2);
  EXPECT_EQ(zoomScale(shortest, 1000), 1.0);
  EXPECT_LT(zoomScale(shortest, 1049), 2.0);
  EXPECT_EQ(zoomScale(shortest, 1050), 2.0);
  EXPECT_LT(zoomScale(shortest, 1051), 2.0);
  EXPECT_EQ(zoomScale(shortest, 1100), 1.0);
  // Half a second is where the two ways just meet.
  EXPECT_EQ(zoomScale(zoomOf(0, 500, 4), 250), 4.0);
  EXPECT_LT(zoomScale(zoomOf(0, 500, 4), 251), 4.0);
  EXPECT_EQ(zoomScale(zoomOf(0, 502, 4), 251), 4.0);
  EXPECT_EQ(zoomScale(zoomOf(0, 502, 4), 252), 4.0);
  // Of an odd length nothing reaches the middle.
  EXPECT_LT(zoomScale(zoomOf(0, 101, 2), 50), 2.0);
  EXPECT_EQ(zoomScale(zoomOf(0, 101, 2), 50), zoomScale(zoomOf(0, 101, 2), 51));
  // Of no length it never is.
  EXPECT_EQ(zoomScale(zoomOf(5, 5, 2), 5), 1.0);
}

TEST(VideoEffectPlan, HoldsThePictureOfTheLastFreeze) {
  FreezeVideoEffectDTO first = freeze();
  first.startMs = 1000;
  first.endMs = 3000;
  first.sourceTimeMs = 1000;
  FreezeVideoEffectDTO second = first;
  second.startMs = 2000;
  second.endMs = 4000;
  second.sourceTimeMs = 2000;
  const std::vector<VideoEditEffectDTO> effects = {effect<Kind::freeze>(first), effect<Kind::freeze>(second),
                                                   effect<Kind::zoom>(zoomOf(0, 9000, 2))};
  const std::pair<std::int64_t, std::optional<std::int64_t>> cases[] = {
      {999, {}},    {1000, 1000}, {1999, 1000}, {2000, 2000},
      {2999, 2000}, {3000, 2000}, {3999, 2000}, {4000, {}}};
  for (const auto& [atMs, sourceTimeMs] : cases)
    EXPECT_EQ(freezeSourceTime(effects, atMs), sourceTimeMs) << atMs;
  EXPECT_EQ(freezeSourceTime({effects[1], effects[0]}, 2500), 1000);
  EXPECT_EQ(freezeSourceTime({}, 0), std::nullopt);
}

} // namespace
} // namespace tessarin
