#include "backends/x11/ExclusionPlan.hpp"

#include <gtest/gtest.h>

namespace tessarin::x11 {
namespace {

constexpr PixelRect screen{0, 0, 100, 100};
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
  WindowStack stack{screen,
                    true,
                    {window({0, 0, 50, 50}, other), window({10, 10, 20, 20}, other, 32),
                     window({0, 0, 30, 30}, host), window({20, 20, 30, 30}, other, 32)}};
  const auto composited = planExclusion(stack, {host}, screen);
  ASSERT_EQ(composited.layers.size(), 3U);
  EXPECT_EQ(sizeOf(composited.patch), 30 * 30);
  EXPECT_FALSE(composited.layers[0].isBlended);
  EXPECT_TRUE(composited.layers[1].isBlended);
  EXPECT_TRUE(composited.layers[2].isBlended);
  EXPECT_EQ(sizeOf(composited.layers[0].region), 30 * 30);

  stack.isComposited = false;
  const auto plain = planExclusion(stack, {host}, screen);
  ASSERT_EQ(plain.layers.size(), 2U);
  EXPECT_EQ(sizeOf(plain.patch), 30 * 30 - 10 * 10);
  EXPECT_FALSE(plain.layers[1].isBlended);
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
