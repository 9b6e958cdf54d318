#include "editing/InteractionOverlayPlan.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace tessarin {
namespace {

using Click = InteractionClickStyleDTO;
using Dwell = InteractionDwellStyleDTO;
using Plan = std::optional<InteractionOverlayPlan>;

constexpr SizeDTO fullHD{1920, 1080};
constexpr NormalizedVideoCropDTO whole{0, 0, 1, 1};
constexpr double tolerance = 1e-9;

InteractionEventDTO cursorAt(std::int64_t timeMs, double x, double y) {
  InteractionCursorEvent event;
  event.timestampMs = timeMs;
  event.x = x;
  event.y = y;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  return {event};
}

InteractionEventDTO clickAt(std::int64_t timeMs, double x, double y,
                            InteractionMouseButton button = InteractionMouseButton::left) {
  InteractionClickEvent event;
  event.timestampMs = timeMs;
  event.x = x;
  event.y = y;
  event.button = button;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  return {event};
}

InteractionEventDTO shortcutAt(std::int64_t timeMs) {
  InteractionShortcutEvent event;
  event.timestampMs = timeMs;
  event.keys = {"Ctrl", "S"};
  return {event};
}

// All of it, from 0 to 10000.
InteractionVideoEffectDTO everything() {
  InteractionVideoEffectDTO effect = editTesting::interaction();
  effect.cursorVisible = true;
  effect.clickVisible = true;
  effect.clickColor = "#ff000080";
  effect.dwellVisible = true;
  effect.shortcutVisible = true;
  effect.shortcutStyle = InteractionShortcutStyleDTO::light;
  return effect;
}

struct Scene {
  std::vector<InteractionEventDTO> events = {};
  InteractionVideoEffectDTO effect = everything();
  std::int64_t timeMs = 1000;
  NormalizedVideoCropDTO crop = whole;
  VideoZoomTransform zoom = {};
  SizeDTO size = fullHD;
};

Plan planOf(const Scene& scene) {
  return interactionOverlayPlan(InteractionEventIndex(scene.events), scene.effect, scene.timeMs, scene.crop,
                                scene.zoom, scene.size);
}

// What is drawn, a letter each, in order.
std::string partsOf(const Plan& plan) {
  if (!plan)
    return "nothing";
  std::string parts;
  parts += plan->dwell ? "d" : "";
  parts += plan->click ? "c" : "";
  parts += plan->cursor ? "p" : "";
  parts += plan->shortcut ? "s" : "";
  return parts;
}

// A pointer that rests in the middle, a click there and a shortcut.
std::vector<InteractionEventDTO> everyEvent() {
  return {cursorAt(0, 0.5, 0.5), cursorAt(900, 0.5, 0.5), clickAt(900, 0.5, 0.5), shortcutAt(900)};
}

void expectNear(const PixelPoint& point, const PixelPoint& expected) {
  EXPECT_NEAR(point.x, expected.x, tolerance);
  EXPECT_NEAR(point.y, expected.y, tolerance);
}

TEST(InteractionOverlayPlan, DrawsWhatIsSwitchedOn) {
  const struct {
    const char* parts;
    std::function<void(InteractionVideoEffectDTO&)> change;
  } cases[] = {
      {"dcps", [](auto&) {}},
      {"nothing", [](auto& it) { it.visible = false; }},
      {"dcs", [](auto& it) { it.cursorVisible = false; }},
      {"dps", [](auto& it) { it.clickVisible = false; }},
      {"cps", [](auto& it) { it.dwellVisible = false; }},
      {"dcp", [](auto& it) { it.shortcutVisible = false; }},
      {"cps", [](auto& it) { it.dwellThresholdMs = 1001; }},
      {"dcps", [](auto& it) { it.dwellThresholdMs = 1000; }},
      {"nothing",
       [](auto& it) { it.cursorVisible = it.clickVisible = it.dwellVisible = it.shortcutVisible = false; }},
      {"nothing", [](auto& it) { it.startMs = 1001; }},
      {"dcps", [](auto& it) { it.startMs = 1000; }},
      {"nothing", [](auto& it) { it.endMs = 1000; }},
      {"dcps", [](auto& it) { it.endMs = 1001; }},
  };
  for (const auto& each : cases) {
    Scene scene{.events = everyEvent()};
    each.change(scene.effect);
    EXPECT_EQ(partsOf(planOf(scene)), each.parts);
  }
}

TEST(InteractionOverlayPlan, DrawsWhatThereIs) {
  const struct {
    const char* name;
    Scene scene;
    const char* parts;
  } cases[] = {
      {"no event", {}, "nothing"},
      {"a click without a pointer", {.events = {clickAt(900, 0.5, 0.5)}}, "c"},
      {"a shortcut alone", {.events = {shortcutAt(900)}}, "s"},
      {"a pointer that has just come", {.events = {cursorAt(900, 0.5, 0.5)}}, "p"},
      {"a pointer beyond the crop",
       {.events = {cursorAt(0, 0.1, 0.5), cursorAt(900, 0.1, 0.5), shortcutAt(900)},
        .crop = {0.5, 0, 0.5, 1}},
       "s"},
      {"only a pointer beyond the crop",
       {.events = {cursorAt(0, 0.1, 0.5), cursorAt(900, 0.1, 0.5)}, .crop = {0.5, 0, 0.5, 1}},
       "nothing"},
      {"a click beyond the crop",
       {.events = {cursorAt(900, 0.6, 0.5), clickAt(900, 0.1, 0.5)}, .crop = {0.5, 0, 0.5, 1}},
       "p"},
      {"of a click the last moment", {.events = {clickAt(351, 0.5, 0.5)}}, "c"},
      {"a click that is over", {.events = {clickAt(350, 0.5, 0.5)}}, "nothing"},
      {"of a pointer the last moment", {.events = {cursorAt(250, 0.5, 0.5)}}, "p"},
      {"a pointer that was not seen for long", {.events = {cursorAt(249, 0.5, 0.5)}}, "nothing"},
      {"one that came back", {.events = {cursorAt(0, 0.5, 0.5), cursorAt(300, 0.9, 0.5)}}, "p"},
  };
  for (const auto& each : cases)
    EXPECT_EQ(partsOf(planOf(each.scene)), each.parts) << each.name;
}

TEST(InteractionOverlayPlan, DwellsOnceThePointerHasRestedThatLong) {
  Scene scene;
  scene.effect.dwellThresholdMs = 400;
  const struct {
    std::vector<InteractionEventDTO> events;
    const char* parts;
  } cases[] = {
      {{cursorAt(600, 0.5, 0.5), cursorAt(1000, 0.505, 0.5)}, "dp"},
      {{cursorAt(601, 0.5, 0.5), cursorAt(1000, 0.505, 0.5)}, "p"},
      {{cursorAt(600, 0.5, 0.5), cursorAt(1000, 0.5065, 0.5)}, "p"},
      {{cursorAt(500, 0.5, 0.5), cursorAt(700, 0.51, 0.5), cursorAt(1000, 0.5, 0.5)}, "p"},
  };
  for (const auto& each : cases) {
    scene.events = each.events;
    EXPECT_EQ(partsOf(planOf(scene)), each.parts);
  }
}

TEST(InteractionOverlayPlan, DrawsNoPointerThatThePictureShowsItself) {
  InteractionCursorEvent event;
  event.x = event.y = 0.5;
  event.cursorRendering = InteractionCursorRendering::source;
  event.timestampMs = 200;
  Scene scene{.events = {{event}, clickAt(850, 0.5, 0.5)}};
  scene.effect.dwellThresholdMs = 700;
  scene.timeMs = 900;
  EXPECT_EQ(partsOf(planOf(scene)), "dc");
  scene.timeMs = 849;
  EXPECT_EQ(partsOf(planOf(scene)), "nothing");
}

// By the tip of the pointer.
TEST(InteractionOverlayPlan, FindsPlacesInCropAndZoom) {
  const struct {
    const char* name;
    Scene scene;
    std::optional<PixelPoint> place;
  } cases[] = {
      {"as it is", {.events = {cursorAt(900, 0.25, 0.75)}}, PixelPoint{480, 810}},
      {"cropped",
       {.events = {cursorAt(900, 0.4, 0.3)}, .crop = {0.25, 0.25, 0.5, 0.5}, .size = {960, 540}},
       PixelPoint{288, 54}},
      {"at the crop's corner",
       {.events = {cursorAt(900, 0.75, 0.75)}, .crop = {0.25, 0.25, 0.5, 0.5}, .size = {960, 540}},
       PixelPoint{960, 540}},
      {"zoomed", {.events = {cursorAt(900, 0.4, 0.5)}, .zoom = {2, -0.5, -0.75}}, PixelPoint{576, 270}},
      {"cropped and zoomed",
       {.events = {cursorAt(900, 0.5, 0.375)}, .crop = {0.25, 0.25, 0.5, 0.5}, .zoom = {2, -0.25, 0}},
       PixelPoint{1440, 540}},
      {"just outside to the left",
       {.events = {cursorAt(900, 0.25, 0.5)}, .zoom = {2, -0.5625, 0}},
       PixelPoint{-120, 1080}},
      {"the farthest to the left",
       {.events = {cursorAt(900, 0, 0)}, .zoom = {2, -0.1, -0.1}},
       PixelPoint{-192, -108}},
      {"the farthest to the right",
       {.events = {cursorAt(900, 1, 1)}, .zoom = {1.1, 0, 0}},
       PixelPoint{2112, 1188}},
      {"beyond the left", {.events = {cursorAt(900, 0, 0)}, .zoom = {2, -0.1001, 0}}, {}},
      {"beyond the top", {.events = {cursorAt(900, 0, 0)}, .zoom = {2, 0, -0.1001}}, {}},
      {"beyond the right", {.events = {cursorAt(900, 1, 0)}, .zoom = {1.1001, 0, 0}}, {}},
      {"beyond the bottom", {.events = {cursorAt(900, 0, 1)}, .zoom = {1.1001, 0, 0}}, {}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    Scene scene = each.scene;
    scene.events.push_back(shortcutAt(900));
    const Plan plan = planOf(scene);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->cursor.has_value(), each.place.has_value());
    if (each.place)
      expectNear(plan->cursor->outline.at(0), *each.place);
  }
}

TEST(InteractionOverlayPlan, RingsAPointerThatDwells) {
  const struct {
    SizeDTO size;
    double radius, lineWidth;
  } cases[] = {{fullHD, 54, 6.48},      {{1080, 1920}, 54, 6.48}, {{1000, 560}, 28, 3.36},
               {{1000, 558}, 28, 3.36}, {{1000, 580}, 29, 3.48},  {{2, 2}, 28, 3.36}};
  for (const auto& each : cases) {
    const Plan plan = planOf({.events = everyEvent(), .size = each.size});
    const auto& halo = std::get<StrokedCircle>(*plan.value().dwell);
    expectNear(halo.center,
               {static_cast<double>(each.size.width) / 2, static_cast<double>(each.size.height) / 2});
    EXPECT_NEAR(halo.radius, each.radius, tolerance);
    EXPECT_NEAR(halo.lineWidth, each.lineWidth, tolerance);
    EXPECT_EQ(halo.color, (Color{1, 0, 0, 0.55}));
  }
}

TEST(InteractionOverlayPlan, DarkensAroundAPointerThatDwells) {
  Scene scene{.events = everyEvent()};
  scene.effect.dwellStyle = Dwell::spotlight;
  const Plan plan = planOf(scene);
  const auto& spotlight = std::get<SpotlightMark>(*plan.value().dwell);
  EXPECT_EQ(spotlight.center, (PixelPoint{960, 540}));
  EXPECT_NEAR(spotlight.radius, 75.6, tolerance);
  EXPECT_EQ(spotlight.shade, (Color{0, 0, 0, 0.32}));
}

// The mark of a click in the middle, at an age.
ClickMark clickMark(Click style, std::int64_t ageMs, const SizeDTO& size = fullHD,
                    InteractionMouseButton button = InteractionMouseButton::left) {
  Scene scene{.events = {clickAt(1000, 0.5, 0.5, button)}, .timeMs = 1000 + ageMs, .size = size};
  scene.effect.clickStyle = style;
  return planOf(scene).value().click.value();
}

TEST(InteractionOverlayPlan, SpreadsRings) {
  const struct {
    std::int64_t ageMs;
    double radius, alpha;
  } cases[] = {{0, 12.96, 0.85},
               {325, 12.96 * 2.1, 0.425},
               {130, 12.96 * 1.44, 0.68},
               {649, 12.96 * (1 + 2.2 * 649 / 650), 0.85 / 650}};
  for (const auto& each : cases) {
    const auto ring = std::get<StrokedCircle>(clickMark(Click::ring, each.ageMs).mark);
    EXPECT_EQ(ring.center, (PixelPoint{960, 540}));
    EXPECT_NEAR(ring.radius, each.radius, tolerance) << each.ageMs;
    EXPECT_NEAR(ring.lineWidth, 2.592, tolerance);
    EXPECT_NEAR(ring.color.alpha, each.alpha, tolerance) << each.ageMs;
    EXPECT_EQ((Color{ring.color.red, ring.color.green, ring.color.blue}), (Color{1, 0, 0}));
  }
  const struct {
    SizeDTO size;
    double radius, lineWidth;
  } sizes[] = {{{1000, 700}, 8.4, 2},
               {{700, 1000}, 8.4, 2},
               {{1000, 660}, 8, 2},
               {{2, 2}, 8, 2},
               {{2000, 1000}, 12, 2.4}};
  for (const auto& each : sizes) {
    const auto ring = std::get<StrokedCircle>(clickMark(Click::ring, 0, each.size).mark);
    EXPECT_NEAR(ring.radius, each.radius, tolerance);
    EXPECT_NEAR(ring.lineWidth, each.lineWidth, tolerance);
  }
}

TEST(InteractionOverlayPlan, FadesPulsesAndDots) {
  const struct {
    Click style;
    std::int64_t ageMs;
    double radius, alpha;
  } cases[] = {{Click::pulse, 0, 12.96 * 1.7, 0.5},   {Click::pulse, 325, 12.96 * 1.45, 0.25},
               {Click::pulse, 130, 12.96 * 1.6, 0.4}, {Click::dot, 0, 12.96 * 0.55, 0.9},
               {Click::dot, 325, 12.96 * 0.55, 0.45}, {Click::dot, 130, 12.96 * 0.55, 0.72}};
  for (const auto& each : cases) {
    const auto disk = std::get<FilledCircle>(clickMark(each.style, each.ageMs).mark);
    EXPECT_EQ(disk.center, (PixelPoint{960, 540}));
    EXPECT_NEAR(disk.radius, each.radius, tolerance) << each.ageMs;
    EXPECT_NEAR(disk.color.alpha, each.alpha, tolerance) << each.ageMs;
    EXPECT_EQ(disk.color.red, 1);
  }
}

TEST(InteractionOverlayPlan, MarksTheRightButton) {
  using enum InteractionMouseButton;
  for (const Click style : {Click::ring, Click::pulse, Click::dot}) {
    EXPECT_FALSE(clickMark(style, 325, fullHD, left).inner);
    EXPECT_FALSE(clickMark(style, 325, fullHD, other).inner);
    const auto inner = clickMark(style, 325, fullHD, right).inner;
    ASSERT_TRUE(inner);
    EXPECT_EQ(inner->center, (PixelPoint{960, 540}));
    EXPECT_NEAR(inner->radius, 2.592, tolerance);
    EXPECT_EQ(inner->color, (Color{1, 1, 1, 0.4}));
  }
}

TEST(InteractionOverlayPlan, DrawsThePointerAsAnArrow) {
  // A unit is a pixel at 1062.5 lines.
  Scene scene{.events = {cursorAt(900, 0.5, 0.5)}, .size = {1000, 2125}};
  scene.effect.cursorColor = "#20406080";
  const CursorMark arrow = planOf(scene).value().cursor.value();
  const PixelPoint tip{500, 1062.5};
  const PixelPoint units[] = {{0, 0}, {9, 33}, {16, 23}, {27, 40}, {33, 36}, {22, 19}, {33, 17}};
  ASSERT_EQ(arrow.outline.size(), std::size(units));
  for (std::size_t at = 0; at < std::size(units); ++at)
    expectNear(arrow.outline[at], {tip.x + 2 * units[at].x, tip.y + 2 * units[at].y});
  EXPECT_NEAR(arrow.lineWidth, 3.6, tolerance);
  EXPECT_EQ(arrow.fill, (Color{32 / 255.0, 64 / 255.0, 96 / 255.0, 128 / 255.0}));
  EXPECT_EQ(arrow.stroke, (Color{1, 1, 1, 0.9}));
  EXPECT_FALSE(arrow.shadow);

  scene.effect.cursorSize = 2.5;
  scene.effect.cursorColor = "#ffffff";
  const CursorMark large = planOf(scene).value().cursor.value();
  expectNear(large.outline[1], {tip.x + 45, tip.y + 165});
  EXPECT_NEAR(large.lineWidth, 9, tolerance);
  EXPECT_EQ(large.stroke, (Color{9 / 255.0, 12 / 255.0, 18 / 255.0, 0.9}));
}

TEST(InteractionOverlayPlan, ThrowsAShadowToTheLowerRight) {
  Scene scene{.events = {cursorAt(900, 0.5, 0.5)}, .size = {1920, 1000}};
  scene.effect.cursorShadow = true;
  scene.effect.cursorSize = 3; // takes no part
  EXPECT_EQ(planOf(scene).value().cursor.value().shadow, (CursorShadow{2.5, 2.5, 3.5, {0, 0, 0, 0.72}}));
}

TEST(InteractionOverlayPlan, NamesTheShortcut) {
  const Plan plan = planOf({.events = everyEvent(), .size = {640, 360}});
  EXPECT_EQ(plan.value().shortcut, (ShortcutMark{{"Ctrl", "S"}, InteractionShortcutStyleDTO::light}));
  EXPECT_EQ(plan.value().size, (SizeDTO{640, 360}));
}

} // namespace
} // namespace tessarin
