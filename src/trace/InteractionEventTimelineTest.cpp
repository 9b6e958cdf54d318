#include "trace/InteractionEventTimeline.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using InteractionEventTimeline::mapToOutput;
using Times = std::vector<std::int64_t>;

InteractionEventDTO cursorAt(std::int64_t timestampMs) {
  InteractionCursorEvent event;
  event.timestampMs = timestampMs;
  event.x = 0.25;
  event.y = 0.75;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  event.cursorRendering = InteractionCursorRendering::source;
  return {event};
}

Times mapped(const Times& source, const std::vector<ClipSpan>& clips) {
  std::vector<InteractionEventDTO> events;
  for (const std::int64_t time : source)
    events.push_back(cursorAt(time));
  Times times;
  for (const InteractionEventDTO& event : mapToOutput(events, clips))
    times.push_back(event.timestampMs());
  return times;
}

TEST(ClipSpan, RoundsHalvesAwayFromZero) {
  EXPECT_EQ((ClipSpan{0, 1001, 2}).outputDurationMs(), 501);
  EXPECT_EQ((ClipSpan{0, 1000, 3}).outputDurationMs(), 333);
  EXPECT_EQ((ClipSpan{500, 1001, 0.5}).outputDurationMs(), 1002);
  EXPECT_EQ((ClipSpan{0, 100, 1.5}).outputDurationMs(), 67);
  EXPECT_EQ((ClipSpan{0, 100, 2}).outputMs(1), 1);
}

TEST(InteractionEventTimeline, LaysClipsEndToEnd) {
  EXPECT_EQ(mapped({0, 999, 1000, 4999, 5000, 5500, 5999, 6000}, {{0, 1000, 1}, {5000, 6000, 1}}),
            (Times{0, 999, 1000, 1500, 1999}));
}

TEST(InteractionEventTimeline, FollowsTheRateOfEachClip) {
  EXPECT_EQ(mapped({100, 101, 300, 1000, 1500}, {{100, 500, 2}, {1000, 2000, 0.5}}),
            (Times{0, 1, 100, 200, 1200}));
}

TEST(InteractionEventTimeline, KeepsEveryEventInsideItsClip) {
  // 100 ms at three times the speed take 33, and 99 ms round to 33: that is the next clip's first.
  EXPECT_EQ(mapped({96, 97, 99, 100}, {{0, 100, 3}, {100, 200, 1}}), (Times{32, 32, 32, 33}));
  EXPECT_EQ(mapped({100, 101}, {{0, 101, 2}, {101, 201, 1}}), (Times{50, 51}));
}

TEST(InteractionEventTimeline, DropsEventsOutsideEveryClip) {
  EXPECT_EQ(mapped({99, 100, 199, 200}, {{100, 200, 1}}), (Times{0, 99}));
  EXPECT_EQ(mapped({1, 2, 3}, {}), Times{});
  EXPECT_EQ(mapped({}, {{0, 100, 1}}), Times{});
}

TEST(InteractionEventTimeline, UsesAnEventOnceWhereClipsOverlap) {
  EXPECT_EQ(mapped({10, 60, 90, 110}, {{0, 100, 1}, {50, 150, 1}}), (Times{10, 60, 90, 160}));
  // The running event never goes back: an earlier stretch that is played again has none.
  EXPECT_EQ(mapped({10, 110}, {{100, 200, 1}, {0, 100, 1}}), (Times{10}));
}

TEST(InteractionEventTimeline, KeepsOrderOfEventsOfOneMoment) {
  std::vector<InteractionEventDTO> events = {cursorAt(100), cursorAt(101)};
  std::get<InteractionCursorEvent>(events[0].event).x = 0.1;
  InteractionClickEvent click;
  click.timestampMs = 101;
  events.push_back({click});
  const auto result = mapToOutput(events, {{0, 300, 3}});
  ASSERT_EQ(result.size(), 3U);
  EXPECT_EQ(result[0].timestampMs(), 33);
  EXPECT_EQ(result[1], events[1].at(34));
  EXPECT_EQ(result[2], events[2].at(34));
}

TEST(InteractionEventTimeline, KeepsTheOtherFields) {
  InteractionClickEvent click;
  click.timestampMs = 600;
  click.x = 0.5;
  click.button = InteractionMouseButton::other;
  InteractionShortcutEvent shortcut;
  shortcut.timestampMs = 700;
  shortcut.keys = {"Command", "C"};
  const std::vector<InteractionEventDTO> events = {cursorAt(500), {click}, {shortcut}};
  EXPECT_EQ(mapToOutput(events, {{500, 1000, 1}}),
            (std::vector<InteractionEventDTO>{events[0].at(0), events[1].at(100), events[2].at(200)}));
}

} // namespace
} // namespace tessarin
