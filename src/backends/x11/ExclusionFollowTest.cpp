#include "backends/x11/ExclusionFollow.hpp"

#include <gtest/gtest.h>

namespace tessarin::x11 {
namespace {

StackedWindow shown(xcb_window_t number, const PixelRect& outer) {
  StackedWindow stacked;
  stacked.window.top = number;
  stacked.window.outer = outer;
  stacked.window.bounds = outer;
  stacked.shape = Region(outer);
  return stacked;
}

// Windows 10 and 30 are to be seen, 20 is not mapped; 10 has a border of 2, 30 is shaped.
WindowStack desk() {
  WindowStack stack{{0, 0, 800, 600},
                    false,
                    {shown(10, {100, 100, 204, 104}), shown(30, {400, 100, 50, 50})},
                    {10, 20, 30}};
  stack.windows[0].borderWidth = 2;
  stack.windows[1].isShaped = true;
  stack.windows[1].shape = Region(PixelRect{410, 110, 30, 30});
  return stack;
}

TEST(ExclusionFollow, MovesAWindowWithItsShape) {
  auto stack = desk();
  EXPECT_EQ(follow(stack, {30, 20, {395, 140, 50, 50}, 0}), StackChange::moved);
  EXPECT_EQ(stack.windows[1].window.outer, (PixelRect{395, 140, 50, 50}));
  EXPECT_EQ(stack.windows[1].window.bounds, (PixelRect{395, 140, 50, 50}));
  EXPECT_EQ(stack.windows[1].shape.rectangles(), (std::vector<PixelRect>{{405, 150, 30, 30}}));
  EXPECT_EQ(follow(stack, {30, 20, {395, 140, 50, 50}, 0}), StackChange::none);
}

TEST(ExclusionFollow, ResizesAWindowUnlessItIsShaped) {
  auto stack = desk();
  EXPECT_EQ(follow(stack, {10, 0, {100, 90, 304, 204}, 2}), StackChange::resized);
  EXPECT_EQ(stack.windows[0].shape.rectangles(), (std::vector<PixelRect>{{100, 90, 304, 204}}));
  EXPECT_EQ(follow(stack, {30, 20, {400, 100, 51, 50}, 0}), StackChange::unknown);
  EXPECT_EQ(follow(stack, {10, 0, {100, 90, 304, 204}, 1}), StackChange::unknown); // another border
}

TEST(ExclusionFollow, DoesNotKnowAWindowThatWasRestacked) {
  auto stack = desk();
  EXPECT_EQ(follow(stack, {30, 10, {400, 100, 50, 50}, 0}), StackChange::unknown);
  EXPECT_EQ(follow(stack, {30, 0, {400, 100, 50, 50}, 0}), StackChange::unknown);
  EXPECT_EQ(stack.order, (std::vector<xcb_window_t>{30, 10, 20}));
  EXPECT_EQ(follow(stack, {30, 0, {401, 100, 50, 50}, 0}), StackChange::moved); // where it is by now
  EXPECT_EQ(follow(stack, {10, 77, {100, 100, 204, 104}, 2}), StackChange::unknown);
}

TEST(ExclusionFollow, KeepsTheOrderOfWindowsThatAreNotToBeSeen) {
  auto stack = desk();
  EXPECT_EQ(follow(stack, {20, 30, {900, 0, 10, 10}, 0}), StackChange::none);
  EXPECT_EQ(stack.order, (std::vector<xcb_window_t>{10, 30, 20}));
  followCreation(stack, 40);
  EXPECT_EQ(follow(stack, {40, 20, {-10, 0, 10, 10}, 0}), StackChange::none);
  EXPECT_EQ(followDestruction(stack, 20), StackChange::none);
  EXPECT_EQ(follow(stack, {40, 30, {800, 0, 10, 10}, 0}), StackChange::none);
  EXPECT_EQ(stack.order, (std::vector<xcb_window_t>{10, 30, 40}));
  // One that comes onto the screen may be mapped.
  EXPECT_EQ(follow(stack, {40, 30, {799, 0, 10, 10}, 0}), StackChange::unknown);
}

TEST(ExclusionFollow, DoesNotKnowWhatLiesBeneathADestroyedWindow) {
  auto stack = desk();
  EXPECT_EQ(followDestruction(stack, 10), StackChange::unknown);
  EXPECT_EQ(stack.order, (std::vector<xcb_window_t>{20, 30}));
}

TEST(ExclusionFollow, TakesTheExtentsOfAShape) {
  auto stack = desk();
  EXPECT_EQ(followShape(stack, 10, true, {-2, 10, 300, 20}), StackChange::moved);
  EXPECT_TRUE(stack.windows[0].isShaped);
  EXPECT_EQ(stack.windows[0].shape.rectangles(), (std::vector<PixelRect>{{100, 112, 204, 20}}));
  EXPECT_EQ(followShape(stack, 10, true, {}), StackChange::moved);
  EXPECT_TRUE(stack.windows[0].shape.isEmpty());
  EXPECT_EQ(followShape(stack, 10, false, {-2, -2, 204, 104}), StackChange::moved);
  EXPECT_FALSE(stack.windows[0].isShaped);
  EXPECT_EQ(stack.windows[0].shape.rectangles(), (std::vector<PixelRect>{{100, 100, 204, 104}}));
  EXPECT_EQ(followShape(stack, 20, true, {0, 0, 5, 5}), StackChange::unknown);
}

} // namespace
} // namespace tessarin::x11
