#include "editing/FramePlan.hpp"

#include "project/EditProjectTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace editTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using enum VideoLayerAnchorDTO;
using Effects = std::vector<VideoEditEffectDTO>;
using Steps = std::vector<std::string>;

constexpr SizeDTO contentSize{1920, 1080};
constexpr SizeDTO canvasSize{1080, 1920};

std::string sizeName(const SizeDTO& size) {
  return size == contentSize ? "content" : size == canvasSize ? "canvas" : "?";
}

// A step in words: what, and on which frame it is painted.
struct StepName {
  std::string operator()(const RedactionStep& step) const {
    return "redaction " + std::to_string(std::lround(step.redaction.strength));
  }
  std::string operator()(const ZoomStep& step) const {
    return (step.isFollowing ? "following " : "zoom ") + step.zoom->id;
  }
  std::string operator()(const CameraStep& step) const { return "camera on " + sizeName(step.size); }
  std::string operator()(const AnnotationStep& step) const {
    return step.effect->id() + " on " + sizeName(step.size);
  }
  std::string operator()(const InteractionStep& step) const {
    std::string parts;
    parts += step.overlay.dwell ? "dwell " : "";
    parts += step.overlay.click ? "click " : "";
    parts += step.overlay.cursor ? "pointer " : "";
    parts += step.overlay.shortcut ? "shortcut " : "";
    return parts + "on " + sizeName(step.overlay.size);
  }
  std::string operator()(const CanvasStep&) const { return "canvas"; }
};

Steps stepsOf(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs = 2000) {
  Steps steps;
  for (const FrameStep& step : framePlan(instruction, atMs).steps)
    steps.push_back(std::visit(StepName(), step));
  return steps;
}

template<Kind K>
VideoEditEffectDTO lasting(VideoEditEffectDTO::RecordOf<K> record, std::int64_t startMs, std::int64_t endMs,
                           std::string id) {
  record.startMs = startMs;
  record.endMs = endMs;
  record.id = std::move(id);
  return effect<K>(std::move(record));
}

VideoEditEffectDTO zoomFrom(std::int64_t startMs, std::int64_t endMs, std::string id,
                            std::optional<bool> followCursor = std::nullopt) {
  ZoomVideoEffectDTO one = zoom();
  one.followCursor = followCursor;
  one.center = {0.25, 0.75};
  return lasting<Kind::zoom>(one, startMs, endMs, std::move(id));
}

VideoEditEffectDTO freezeFrom(std::int64_t startMs, std::int64_t endMs, std::int64_t sourceTimeMs = 500) {
  FreezeVideoEffectDTO one = freeze();
  one.sourceTimeMs = sourceTimeMs;
  return lasting<Kind::freeze>(one, startMs, endMs, "freeze " + std::to_string(startMs));
}

VideoEditEffectDTO textOn(std::optional<VideoLayerAnchorDTO> anchor, std::string id) {
  TextVideoEffectDTO one = text();
  one.anchor = anchor;
  one.id = std::move(id);
  return effect<Kind::text>(one);
}

VideoEditEffectDTO redactionOf(double strength) {
  RedactionVideoEffectDTO one = redaction();
  one.strength = strength;
  return effect<Kind::redaction>(one);
}

// A pointer that has rested in the middle for long, a click and a shortcut, all seen at 2000.
InteractionEventIndex everyInteraction() {
  std::vector<InteractionEventDTO> events;
  for (const std::int64_t time : {0, 1000, 1900}) {
    InteractionCursorEvent cursor;
    cursor.timestampMs = time;
    cursor.x = cursor.y = 0.5;
    events.push_back({cursor});
  }
  InteractionClickEvent click;
  click.timestampMs = 1900;
  click.x = click.y = 0.5;
  InteractionShortcutEvent shortcut;
  shortcut.timestampMs = 1900;
  shortcut.keys = {"Ctrl", "C"};
  events.push_back({click});
  events.push_back({shortcut});
  return InteractionEventIndex(events);
}

InteractionVideoEffectDTO shownInteraction() {
  InteractionVideoEffectDTO one = interaction();
  one.clickVisible = true;
  one.dwellVisible = true;
  one.shortcutVisible = true;
  return one;
}

// Ten seconds in one clip, without an output, a camera or a trace.
VideoEffectCompositionInstruction plain(Effects effects = {},
                                        const std::vector<ClipSpan>& clips = {{0, 10'000, 1}}) {
  VideoEffectCompositionInstruction instruction;
  instruction.source = {1920, 1080, {}};
  instruction.contentRenderSize = contentSize;
  instruction.renderSize = contentSize;
  instruction.effects = std::move(effects);
  instruction.interactionIndex = everyInteraction();
  instruction.followPlan =
      CursorFollowPlan(clips, instruction.effects, {}, instruction.interactionIndex.cursors());
  return instruction;
}

// The same on an upright canvas, with a camera and a trace.
VideoEffectCompositionInstruction onCanvas(VideoLayerAnchorDTO camera, VideoLayerAnchorDTO shortcut,
                                           Effects effects = {}) {
  VideoEffectCompositionInstruction instruction = plain(std::move(effects));
  instruction.renderSize = canvasSize;
  instruction.output = version("upright");
  instruction.output->canvas.widthPixels = canvasSize.width;
  instruction.output->canvas.heightPixels = canvasSize.height;
  instruction.output->cameraAnchor = camera;
  instruction.output->shortcutAnchor = shortcut;
  instruction.cameraTrack = CompositionTrackForm{640, 480, {}};
  instruction.camera = cameraLayer();
  instruction.interaction = shownInteraction();
  return instruction;
}

TEST(FramePlan, LeavesAPlainFrameAsItIs) {
  EXPECT_THAT(stepsOf(plain()), IsEmpty());
  EXPECT_FALSE(framePlan(plain(), 2000).freezeFrame);
}

TEST(FramePlan, PaintsInOneOrder) {
  const Effects effects = {effect<Kind::number>(number()),
                           textOn(canvas, "caption"),
                           textOn(content, "label"),
                           effect<Kind::arrow>(arrow()),
                           effect<Kind::ellipse>(shape(Kind::ellipse)),
                           effect<Kind::rectangle>(shape()),
                           effect<Kind::highlight>(highlight()),
                           redactionOf(20),
                           redactionOf(30),
                           textOn(std::nullopt, "title"),
                           zoomFrom(1000, 3000, "zoom"),
                           effect<Kind::interaction>(interaction())};
  EXPECT_THAT(stepsOf(onCanvas(content, content, effects)),
              ElementsAre("zoom zoom", "redaction 20", "redaction 30", "camera on content",
                          "highlight on content", "ellipse on content", "rectangle on content",
                          "arrow on content", "label on content", "title on content", "number on content",
                          "dwell click pointer shortcut on content", "canvas", "caption on canvas"));
  EXPECT_THAT(stepsOf(onCanvas(canvas, canvas, effects)),
              ElementsAre("zoom zoom", "redaction 20", "redaction 30", "highlight on content",
                          "ellipse on content", "rectangle on content", "arrow on content",
                          "label on content", "title on content", "number on content",
                          "dwell click pointer on content", "canvas", "camera on canvas", "caption on canvas",
                          "shortcut on canvas"));
}

TEST(FramePlan, PaintsEffectsOfTheirTimeOnly) {
  const VideoEffectCompositionInstruction instruction =
      plain({lasting<Kind::highlight>(highlight(), 1000, 3000, "mark"), redactionOf(20),
             textOn(canvas, "caption")});
  const Steps all = {"redaction 20", "mark on content", "caption on content"};
  EXPECT_EQ(stepsOf(instruction, 999), Steps());
  EXPECT_EQ(stepsOf(instruction, 1000), all);
  EXPECT_EQ(stepsOf(instruction, 2999), all);
  EXPECT_EQ(stepsOf(instruction, 3000), Steps());
}

TEST(FramePlan, RedactsByThePixelsOfTheContent) {
  const VideoEffectCompositionInstruction instruction = onCanvas(content, content, {redactionOf(20)});
  const FramePlan plan = framePlan(instruction, 2000);
  EXPECT_EQ(std::get<RedactionStep>(plan.steps.at(0)).redaction,
            redactionGeometry(*instruction.effects[0].as<Kind::redaction>(), contentSize));
}

// Under a zoom that stays they hide a place of the screen, under one that moves a place of the content.
TEST(FramePlan, RedactsBeforeAZoomThatFollows) {
  const Effects fixed = {redactionOf(20), zoomFrom(1000, 3000, "z")};
  EXPECT_THAT(stepsOf(plain(fixed)), ElementsAre("zoom z", "redaction 20"));
  const Effects following = {redactionOf(20), zoomFrom(1000, 3000, "z", true)};
  EXPECT_THAT(stepsOf(plain(following)), ElementsAre("redaction 20", "following z"));
  const Effects none = {redactionOf(20)};
  EXPECT_THAT(stepsOf(plain(none)), ElementsAre("redaction 20"));
}

TEST(FramePlan, MovesByTheLastZoom) {
  EXPECT_THAT(stepsOf(plain({zoomFrom(1000, 3000, "a"), zoomFrom(1500, 2500, "b")})), ElementsAre("zoom b"));
  EXPECT_THAT(stepsOf(plain({zoomFrom(1500, 2500, "b", true), zoomFrom(1000, 3000, "a")})),
              ElementsAre("zoom a"));
  EXPECT_THAT(stepsOf(plain({zoomFrom(1000, 3000, "a"), zoomFrom(1500, 2500, "b", true)})),
              ElementsAre("following b"));
}

VideoZoomTransform zoomTransform(const VideoEffectCompositionInstruction& instruction, std::int64_t atMs) {
  const auto step = frameZoom(instruction, atMs);
  return step ? step->transform : VideoZoomTransform{};
}

TEST(FramePlan, MovesAFixedZoomByItsCenter) {
  const VideoEffectCompositionInstruction instruction = plain({zoomFrom(1000, 3000, "z")});
  EXPECT_EQ(zoomTransform(instruction, 2000), (VideoZoomTransform{2, -0.25, -0.75}));
  EXPECT_EQ(zoomTransform(instruction, 1125), (VideoZoomTransform{1.5, -0.125, -0.375}));
}

TEST(FramePlan, MovesAFollowingZoomByItsPath) {
  const VideoEffectCompositionInstruction instruction = plain({zoomFrom(1000, 3000, "z", true)});
  const auto* const zoom = instruction.effects[0].as<Kind::zoom>();
  for (const std::int64_t atMs : {1000, 1100, 2000, 2990})
    EXPECT_EQ(zoomTransform(instruction, atMs), instruction.followPlan.transform(zoom, atMs)) << atMs;
  EXPECT_NE(zoomTransform(instruction, 2000), fixedZoomTransform(*zoom, 2000));
}

// Which zoom is seen while a freeze holds the picture from 2000 to 3000.
TEST(FramePlan, ChoosesTheZoomOfAFrozenPicture) {
  const auto freezing = freezeFrom(2000, 3000);
  const auto* const follower = "follower";
  const auto other = zoomFrom(8000, 9000, "other", true); // for the plan to have freezes at all
  const struct {
    const char* name;
    Effects effects;
    std::int64_t atMs;
    Steps steps;
    std::int64_t sampledAtMs;
  } cases[] = {
      {"a follower goes on",
       {zoomFrom(1000, 4000, follower, true), freezing},
       2500,
       {"following follower"},
       2000},
      {"even behind its end",
       {zoomFrom(1000, 2300, follower, true), freezing},
       2500,
       {"following follower"},
       2000},
      {"until the freeze is over", {zoomFrom(1000, 2300, follower, true), freezing}, 3000, {}, 0},
      {"then it goes with the time",
       {zoomFrom(1000, 4000, follower, true), freezing},
       3000,
       {"following follower"},
       3000},
      {"one that begins with the freeze",
       {zoomFrom(2000, 4000, follower, true), freezing},
       2500,
       {"following follower"},
       2000},
      {"one that begins within does not", {zoomFrom(2100, 4000, follower, true), freezing}, 2500, {}, 0},
      {"but behind it", {zoomFrom(2100, 4000, follower, true), freezing}, 3000, {"following follower"}, 3000},
      {"a fixed one goes on", {zoomFrom(1000, 4000, "fixed"), freezing, other}, 2500, {"zoom fixed"}, 2500},
      {"a fixed one begins within",
       {zoomFrom(2400, 4000, "fixed"), freezing, other},
       2500,
       {"zoom fixed"},
       2500},
      {"a fixed one ends within", {zoomFrom(1000, 2500, "fixed"), freezing, other}, 2500, {}, 0},
      {"a follower keeps out a fixed one",
       {zoomFrom(1000, 4000, follower, true), freezing, zoomFrom(2400, 4000, "fixed")},
       2500,
       {"following follower"},
       2000},
      {"a fixed one gives way to no follower",
       {zoomFrom(1000, 4000, "fixed"), freezing, zoomFrom(2400, 4000, follower, true)},
       2500,
       {},
       0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const VideoEffectCompositionInstruction instruction = plain(each.effects);
    EXPECT_EQ(stepsOf(instruction, each.atMs), each.steps);
    if (const auto step = frameZoom(instruction, each.atMs)) {
      EXPECT_EQ(step->transform, instruction.followPlan.transform(step->zoom, each.sampledAtMs));
    }
  }
}

TEST(FramePlan, FindsTheZoomOfAFrozenPictureInItsOwnClip) {
  const Effects effects = {zoomFrom(1000, 2200, "z", true), freezeFrom(1500, 3500)};
  const VideoEffectCompositionInstruction instruction = plain(effects, {{0, 2500, 1}, {5000, 9000, 1}});
  EXPECT_THAT(stepsOf(instruction, 2400), ElementsAre("following z"));
  EXPECT_THAT(stepsOf(instruction, 2500), IsEmpty()); // of the clip that begins there
}

TEST(FramePlan, ShowsAFrozenPictureThatThereIs) {
  VideoEffectCompositionInstruction instruction =
      plain({freezeFrom(1000, 3000, 700), freezeFrom(2000, 2500, 800)});
  instruction.freezeFrames[700];
  using Key = std::optional<std::int64_t>;
  EXPECT_EQ(framePlan(instruction, 999).freezeFrame, Key());
  EXPECT_EQ(framePlan(instruction, 1000).freezeFrame, Key(700));
  EXPECT_EQ(framePlan(instruction, 2000).freezeFrame, Key()); // there is none of 800
  instruction.freezeFrames[800];
  EXPECT_EQ(framePlan(instruction, 2000).freezeFrame, Key(800));
  EXPECT_EQ(framePlan(instruction, 2500).freezeFrame, Key(700));
  EXPECT_EQ(framePlan(instruction, 3000).freezeFrame, Key());
}

TEST(FramePlan, LaysTheCameraWhereItIsAnchored) {
  VideoEffectCompositionInstruction instruction = onCanvas(content, content);
  instruction.interaction.reset();
  EXPECT_THAT(stepsOf(instruction), ElementsAre("camera on content", "canvas"));
  instruction.output->cameraAnchor = canvas;
  EXPECT_THAT(stepsOf(instruction), ElementsAre("canvas", "camera on canvas"));
  instruction.output.reset();
  EXPECT_THAT(stepsOf(instruction), ElementsAre("camera on content"));
  instruction.camera->visible = false;
  EXPECT_THAT(stepsOf(instruction), IsEmpty());
  instruction.camera->visible = true;
  instruction.cameraTrack.reset();
  EXPECT_THAT(stepsOf(instruction), IsEmpty());
  instruction.cameraTrack = CompositionTrackForm{640, 480, {}};
  instruction.camera.reset();
  EXPECT_THAT(stepsOf(instruction), IsEmpty());
}

TEST(FramePlan, MovesTheCameraOnItsWay) {
  VideoEffectCompositionInstruction instruction = onCanvas(content, content);
  const NormalizedVideoRectDTO first{0, 0, 0.2, 0.2};
  const NormalizedVideoRectDTO second{0.5, 0.5, 0.2, 0.2};
  instruction.camera->recordedPositions = {{0, first}, {2000, second}};
  const auto rectAt = [&](std::int64_t atMs) {
    return std::get<CameraStep>(framePlan(instruction, atMs).steps.at(0)).layer.rect;
  };
  EXPECT_EQ(rectAt(1999), first);
  EXPECT_EQ(rectAt(2000), second);
}

TEST(FramePlan, DrawsTheTraceOfItsTimeOnly) {
  VideoEffectCompositionInstruction instruction = plain();
  instruction.interaction = shownInteraction();
  instruction.interaction->startMs = 2000;
  instruction.interaction->endMs = 2100;
  EXPECT_THAT(stepsOf(instruction, 1999), IsEmpty());
  EXPECT_THAT(stepsOf(instruction, 2000), ElementsAre("dwell click pointer shortcut on content"));
  EXPECT_THAT(stepsOf(instruction, 2099), ElementsAre("dwell click pointer shortcut on content"));
  EXPECT_THAT(stepsOf(instruction, 2100), IsEmpty());
  instruction.interaction->visible = false;
  EXPECT_THAT(stepsOf(instruction, 2000), IsEmpty());
}

TEST(FramePlan, DrawsShortcutsOnTheirOwnStage) {
  VideoEffectCompositionInstruction instruction = onCanvas(content, canvas);
  instruction.camera.reset();
  EXPECT_THAT(stepsOf(instruction),
              ElementsAre("dwell click pointer on content", "canvas", "shortcut on canvas"));
  instruction.interaction->shortcutVisible = false;
  EXPECT_THAT(stepsOf(instruction), ElementsAre("dwell click pointer on content", "canvas"));
  instruction.interaction->shortcutVisible = true;
  instruction.interaction->visible = false;
  EXPECT_THAT(stepsOf(instruction), ElementsAre("canvas"));
  instruction.interaction->visible = true;
  instruction.output.reset();
  EXPECT_THAT(stepsOf(instruction), ElementsAre("dwell click pointer shortcut on content"));
}

TEST(FramePlan, DrawsTheTraceInCropAndZoom) {
  VideoEffectCompositionInstruction instruction = plain({zoomFrom(1000, 3000, "z")});
  instruction.interaction = shownInteraction();
  instruction.crop = {0.25, 0.25, 0.5, 0.5};
  const auto tip = [&] {
    const FramePlan plan = framePlan(instruction, 2000);
    return std::get<InteractionStep>(plan.steps.back()).overlay.cursor.value().outline.at(0);
  };
  // The pointer is in the middle, which twice the size around (0.25, 0.75) moves to (0.75, 0.25).
  EXPECT_EQ(tip(), (PixelPoint{1440, 270}));
  instruction.effects.clear();
  EXPECT_EQ(tip(), (PixelPoint{960, 540}));
  instruction.crop = {0.5, 0.25, 0.5, 0.5};
  EXPECT_EQ(tip(), (PixelPoint{0, 540}));
}

} // namespace
} // namespace tessarin
