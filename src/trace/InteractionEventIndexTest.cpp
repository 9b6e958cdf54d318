#include "trace/InteractionEventIndex.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace tessarin {
namespace {

constexpr std::int64_t earliest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max();

InteractionEventDTO cursorAt(std::int64_t timestampMs, double x = 0.5, double y = 0.5) {
  InteractionCursorEvent event;
  event.timestampMs = timestampMs;
  event.x = x;
  event.y = y;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  return {event};
}

InteractionEventDTO clickAt(std::int64_t timestampMs,
                            InteractionMouseButton button = InteractionMouseButton::left) {
  InteractionClickEvent event;
  event.timestampMs = timestampMs;
  event.x = 0.25;
  event.y = 0.125;
  event.button = button;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  return {event};
}

InteractionEventDTO shortcutAt(std::int64_t timestampMs, std::vector<std::string> keys = {"F5"}) {
  InteractionShortcutEvent event;
  event.timestampMs = timestampMs;
  event.keys = std::move(keys);
  return {event};
}

TEST(InteractionEventIndex, SplitsEventsByKindInOrder) {
  const InteractionEventIndex index({cursorAt(1, 0.1, 0.2), shortcutAt(1),
                                     clickAt(2, InteractionMouseButton::other), cursorAt(2, 0.3, 0.4),
                                     shortcutAt(3, {"Command", "C"})});
  EXPECT_EQ(index.cursors(), (std::vector<InteractionCursorSample>{{1, {0.1, 0.2}, std::nullopt},
                                                                   {2, {0.3, 0.4}, std::nullopt}}));
  EXPECT_EQ(index.clicks(),
            (std::vector<InteractionClickSample>{{2, {0.25, 0.125}, InteractionMouseButton::other}}));
  EXPECT_EQ(index.shortcuts(), (std::vector<InteractionShortcutSample>{{1, {"F5"}}, {3, {"Command", "C"}}}));
}

TEST(InteractionEventIndex, TurnsPointsOfOlderTraces) {
  InteractionCursorEvent cursor;
  cursor.x = 0.25;
  cursor.y = 0.125;
  cursor.cursorRendering = InteractionCursorRendering::source;
  InteractionClickEvent click;
  click.x = 0.75;
  click.y = 1;
  const InteractionEventIndex index({{cursor}, {click}});
  EXPECT_EQ(index.cursors(),
            (std::vector<InteractionCursorSample>{{0, {0.25, 0.875}, InteractionCursorRendering::source}}));
  EXPECT_EQ(index.clicks(),
            (std::vector<InteractionClickSample>{{0, {0.75, 0}, InteractionMouseButton::left}}));
}

TEST(InteractionEventIndex, FindsTheLastTimeThatIsNotLater) {
  const std::vector<std::int64_t> times = {10, 20, 20, 30};
  const auto last = [&](std::int64_t time) { return InteractionEventIndex::lastIndex(time, times); };
  EXPECT_EQ(last(9), std::nullopt);
  EXPECT_EQ(last(10), 0U);
  EXPECT_EQ(last(19), 0U);
  EXPECT_EQ(last(20), 2U);
  EXPECT_EQ(last(29), 2U);
  EXPECT_EQ(last(30), 3U);
  EXPECT_EQ(last(latest), 3U);
  EXPECT_EQ(last(earliest), std::nullopt);
  EXPECT_EQ(InteractionEventIndex::lastIndex(5, {}), std::nullopt);
}

TEST(InteractionEventIndex, ShowsACursorFor750Milliseconds) {
  const InteractionEventIndex index({cursorAt(1000)});
  EXPECT_FALSE(index.state(999, 400).cursor);
  EXPECT_EQ(index.state(1000, 400).cursor, index.cursors().front());
  EXPECT_TRUE(index.state(1750, 400).cursor);
  EXPECT_FALSE(index.state(1751, 400).cursor);
}

TEST(InteractionEventIndex, ShowsAClickForLessThan650Milliseconds) {
  const InteractionEventIndex index({clickAt(1000)});
  EXPECT_FALSE(index.state(999, 400).click);
  EXPECT_EQ(index.state(1000, 400).click, index.clicks().front());
  EXPECT_TRUE(index.state(1649, 400).click);
  EXPECT_FALSE(index.state(1650, 400).click);
}

TEST(InteractionEventIndex, ShowsAShortcutForLessThan1500Milliseconds) {
  const InteractionEventIndex index({shortcutAt(1000)});
  EXPECT_FALSE(index.state(999, 400).shortcut);
  EXPECT_EQ(index.state(1000, 400).shortcut, index.shortcuts().front());
  EXPECT_TRUE(index.state(2499, 400).shortcut);
  EXPECT_FALSE(index.state(2500, 400).shortcut);
}

TEST(InteractionEventIndex, ShowsTheNewestOfEach) {
  const InteractionEventIndex index({cursorAt(10, 0.1), cursorAt(20, 0.2), cursorAt(30, 0.3), clickAt(10),
                                     clickAt(20, InteractionMouseButton::right), shortcutAt(10),
                                     shortcutAt(20, {"F6"}), shortcutAt(20, {"F7"})});
  const InteractionOverlayState state = index.state(25, 400);
  EXPECT_EQ(state.cursor->point.x, 0.2);
  EXPECT_EQ(state.click->button, InteractionMouseButton::right);
  EXPECT_EQ(state.shortcut->keys, std::vector<std::string>{"F7"});
}

TEST(InteractionEventIndex, ShowsNothingOfAnEmptyTrace) {
  for (const std::int64_t at : {earliest, std::int64_t{0}, latest})
    for (const std::int64_t threshold : {earliest, std::int64_t{0}, latest}) {
      EXPECT_EQ(InteractionEventIndex().state(at, threshold), InteractionOverlayState{});
      EXPECT_EQ(InteractionEventIndex({clickAt(0), shortcutAt(0)}).state(at, threshold).dwelling, false);
    }
}

TEST(InteractionEventIndex, DwellsWhenThePointerHasRestedLongEnough) {
  const InteractionEventIndex index({cursorAt(0, 0.9), cursorAt(100), cursorAt(400), cursorAt(700)});
  EXPECT_TRUE(index.state(700, 600).dwelling); // the sample at 100 is old enough
  EXPECT_FALSE(index.state(700, 601).dwelling);
  EXPECT_TRUE(index.state(701, 601).dwelling);
  EXPECT_TRUE(index.state(1000, 900).dwelling);
  EXPECT_FALSE(index.state(1000, 901).dwelling);
}

TEST(InteractionEventIndex, DoesNotDwellBeforeTheTraceBegins) {
  const InteractionEventIndex index({cursorAt(100), cursorAt(400)});
  EXPECT_FALSE(index.state(99, 0).dwelling);
  EXPECT_FALSE(index.state(450, 400).dwelling); // the samples run out
  EXPECT_TRUE(index.state(500, 400).dwelling);
}

TEST(InteractionEventIndex, DwellsOnASampleTooOldToBeShown) {
  const InteractionEventIndex index({cursorAt(0)});
  const InteractionOverlayState state = index.state(2000, 400);
  EXPECT_FALSE(state.cursor);
  EXPECT_TRUE(state.dwelling);
}

TEST(InteractionEventIndex, DwellsWithinARadiusOf6Thousandths) {
  for (const auto& [x, y, isInside] :
       {std::tuple{0.006, 0.0, true}, std::tuple{0.0061, 0.0, false}, std::tuple{0.0, 0.006, true},
        std::tuple{0.0, 0.0061, false}, std::tuple{0.004, 0.004, true}, std::tuple{0.0045, 0.0045, false}}) {
    const InteractionEventIndex index({cursorAt(0, x, y), cursorAt(500, 0, 0)});
    EXPECT_EQ(index.state(500, 500).dwelling, isInside) << x << ' ' << y;
  }
}

TEST(InteractionEventIndex, MeasuresTheRadiusFromTheNewestSample) {
  // Each step is short, but the way is not.
  const InteractionEventIndex index({cursorAt(0, 0.5), cursorAt(200, 0.504), cursorAt(400, 0.508)});
  EXPECT_FALSE(index.state(400, 400).dwelling);
  EXPECT_TRUE(index.state(400, 200).dwelling);
}

TEST(InteractionEventIndex, IsNotDeceivedByAReturn) {
  const InteractionEventIndex index({cursorAt(0), cursorAt(200, 0.6), cursorAt(400)});
  EXPECT_FALSE(index.state(400, 400).dwelling);
}

TEST(InteractionEventIndex, AnswersAtTheEndsOfTime) {
  const InteractionEventIndex index({cursorAt(0), clickAt(0), shortcutAt(0)});
  EXPECT_TRUE(index.state(latest, 400).dwelling);
  EXPECT_FALSE(index.state(latest, 400).cursor);
  EXPECT_FALSE(index.state(5, latest).dwelling);
  EXPECT_TRUE(index.state(5, earliest).dwelling);
  EXPECT_EQ(index.state(earliest, 400), InteractionOverlayState{});
  EXPECT_FALSE(InteractionEventIndex({cursorAt(earliest)}).state(latest, 400).cursor);
}

} // namespace
} // namespace tessarin
