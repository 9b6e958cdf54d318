#include "backends/x11/ExclusionPlan.hpp"

#include <gtest/gtest.h>

namespace tessarin::x11 {
namespace {

constexpr PixelRect screen{0, 0, 100, 100};
constexpr PixelRect wideScreen{0, 0, 1000, 1000};
constexpr std::int32_t host = 7;
constexpr std::int32_t other = 8;

StackedWindow window(const PixelRect& outer, std::int32_t process, std::uint8_t depth = 24) {
  StackedWindow stacked;
  stacked.window.outer = outer;
  stacked.window.depth = depth;
  stacked.window.owner.processID = process;
  stacked.shape = Region(outer);
  return stacked;
}

std::int64_t sizeOf(const Region& region) {
  std::int64_t pixels = 0;
  for (const auto& rectangle : region.rectangles()) {
    pixels += std::int64_t{rectangle.width} * rectangle.height;
  }
  return pixels;
}

TEST(ExclusionPlan, PatchesOnlyWhatIsToBeSeenOfAnExcludedWindow) {
  const WindowStack stack{screen, false, {window({10, 10, 40, 40}, host), window({30, 10, 40, 40}, other)}};
  const auto plan = planExclusion(stack, {host}, screen);
  EXPECT_EQ(plan.patch.extents(), (PixelRect{10, 10, 20, 40}));
  EXPECT_EQ(sizeOf(plan.background), 20 * 40);
  EXPECT_TRUE(plan.layers.empty());
}

TEST(ExclusionPlan, TakesEachPixelFromTheNextWindowBeneathThatStays) {
  const WindowStack stack{screen,
                          false,
                          {window({0, 0, 60, 60}, other), window({20, 20, 60, 60}, other),
                           window({5, 5, 90, 10}, host), window({10, 10, 50, 50}, host)}};
  const auto plan = planExclusion(stack, {host}, screen);
  ASSERT_EQ(plan.layers.size(), 2U);
  EXPECT_EQ(plan.layers[0].window, 0U);
  EXPECT_EQ(plan.layers[1].window, 1U);
  EXPECT_EQ(sizeOf(plan.layers[1].region), 40 * 40);
  auto all = plan.background;
  for (const auto& layer : plan.layers) {
    EXPECT_FALSE(layer.isBlended);
    EXPECT_TRUE(all.intersection(layer.region).isEmpty());
    all.add(layer.region);
  }
  EXPECT_EQ(sizeOf(all), sizeOf(plan.patch));
}

TEST(ExclusionPlan, MixesTranslucentWindowsOnlyWhereACompositingManagerDoes) {
  WindowStack stack{wideScreen,
                    true,
                    {window({0, 0, 500, 500}, other), window({100, 100, 200, 200}, other, 32),
                     window({0, 0, 300, 300}, host), window({200, 200, 300, 300}, other, 32)}};
  const auto composited = planExclusion(stack, {host}, wideScreen);
  ASSERT_EQ(composited.layers.size(), 3U);
  EXPECT_FALSE(composited.layers[0].isBlended);
  EXPECT_TRUE(composited.layers[1].isBlended);
  EXPECT_TRUE(composited.layers[2].isBlended);
  EXPECT_EQ(sizeOf(composited.layers[0].region), sizeOf(composited.patch));

  stack.isComposited = false;
  const auto plain = planExclusion(stack, {host}, wideScreen);
  ASSERT_EQ(plain.layers.size(), 2U);
  EXPECT_EQ(sizeOf(plain.patch), 300 * 300 - 100 * 100);
  EXPECT_FALSE(plain.layers[1].isBlended);
}

TEST(ExclusionPlan, PaintsOverTheReachOfShadowsOnlyWhereACompositingManagerThrowsThem) {
  WindowStack stack{wideScreen, true, {window({200, 300, 40, 30}, host)}};
  EXPECT_EQ(planExclusion(stack, {host}, wideScreen).patch.extents(),
            (PixelRect{200 - shadowReach, 300 - shadowReach, 40 + 2 * shadowReach, 30 + 2 * shadowReach}));
  // A window beside the area is as near as its shadow.
  const PixelRect beside{240 + shadowReach - 1, 0, 100, 1000};
  EXPECT_EQ(planExclusion(stack, {host}, beside).patch.extents().width, 1);
  const PixelRect clear{240 + shadowReach, 0, 100, 1000};
  EXPECT_TRUE(planExclusion(stack, {host}, clear).patch.isEmpty());
  stack.isComposited = false;
  EXPECT_EQ(planExclusion(stack, {host}, wideScreen).patch.extents(), (PixelRect{200, 300, 40, 30}));
  EXPECT_TRUE(planExclusion(stack, {host}, beside).patch.isEmpty());
}

TEST(ExclusionPlan, PaintsWhatLiesInFrontAnewWhereItMayBeShownLate) {
  const std::vector<StackedWindow> windows = {window({200, 200, 40, 40}, host),
                                              window({0, 0, 1000, 1000}, other)};
  EXPECT_TRUE(planExclusion({wideScreen, false, windows}, {host}, wideScreen).patch.isEmpty());
  const auto composited = planExclusion({wideScreen, true, windows}, {host}, wideScreen);
  ASSERT_EQ(composited.layers.size(), 1U);
  EXPECT_EQ(sizeOf(composited.layers[0].region), (40 + 2 * shadowReach) * (40 + 2 * shadowReach));
}

TEST(ExclusionPlan, PaintsPastPlacesAnewAndCountsThemNotAsPlaces) {
  const WindowStack stack{wideScreen, true, {window({0, 0, 1000, 1000}, other)}};
  const auto plan = planExclusion(stack, {host}, {0, 0, 50, 50}, {{40, 40, 100, 100}});
  EXPECT_TRUE(plan.places.empty());
  EXPECT_EQ(plan.patch.extents(), (PixelRect{40, 40, 10, 10}));
  ASSERT_EQ(plan.layers.size(), 1U);
  EXPECT_TRUE(plan.background.isEmpty());
}

TEST(ExclusionPlan, TakesTheWholeRectangleOfAShapeThatFillsHalfOfIt) {
  auto shaped = window({10, 10, 40, 40}, host);
  shaped.shape = Region(PixelRect{10, 10, 40, 10});
  shaped.shape.add(PixelRect{10, 20, 10, 30});
  // 700 of 1600 pixels
  EXPECT_EQ(sizeOf(planExclusion({screen, false, {shaped}}, {host}, screen).patch), 700);
  shaped.shape.add(PixelRect{45, 45, 5, 20});
  shaped.shape = shaped.shape.intersection(shaped.window.outer);
  shaped.shape.add(PixelRect{20, 20, 5, 15});
  // 800
  EXPECT_EQ(sizeOf(planExclusion({screen, false, {shaped}}, {host}, screen).patch), 1600);
}

TEST(ExclusionPlan, FindsTheWindowsAroundThatAreOrWouldBeSeen) {
  const WindowStack stack{wideScreen,
                          false,
                          {window({0, 0, 1000, 1000}, other), window({520, 500, 10, 10}, other),
                           window({500, 500, 100, 100}, other), window({630, 500, 50, 50}, other),
                           window({631, 500, 50, 50}, host), window({530, 500, 70, 50}, host)}};
  const auto plan = planExclusion(stack, {host}, {0, 0, 610, 1000});
  ASSERT_EQ(plan.places, (std::vector<PixelRect>{{530, 500, 70, 50}}));
  EXPECT_EQ(windowsAround(stack, {host}, plan, 30), (std::vector<std::size_t>{0, 2}));
  EXPECT_EQ(windowsAround(stack, {host}, plan, 31), (std::vector<std::size_t>{0, 2, 3}));
  EXPECT_TRUE(windowsAround(stack, {1}, planExclusion(stack, {1}, wideScreen), 31).empty());
}

TEST(ExclusionPlan, HasNothingToDoOutsideOfTheAreaOrWithoutWindowsOfTheProcesses) {
  const WindowStack stack{screen, false, {window({10, 10, 40, 40}, host)}};
  EXPECT_TRUE(planExclusion(stack, {host}, {50, 50, 20, 20}).patch.isEmpty());
  EXPECT_TRUE(planExclusion(stack, {other}, screen).patch.isEmpty());
  EXPECT_TRUE(planExclusion(stack, {}, screen).patch.isEmpty());
  EXPECT_EQ(planExclusion(stack, {host}, {49, 49, 20, 20}).patch.extents(), (PixelRect{49, 49, 1, 1}));
}

TEST(WindowStack, HidesWhatLiesBeneathOthersAndOffTheScreen) {
  const WindowStack stack{screen, false, {window({-10, 0, 30, 10}, other), window({10, 0, 5, 5}, other)}};
  EXPECT_EQ(sizeOf(stack.hiddenPart(0)), 10 * 10 + 5 * 5);
  EXPECT_TRUE(stack.hiddenPart(1).isEmpty());
}

} // namespace
} // namespace tessarin::x11
