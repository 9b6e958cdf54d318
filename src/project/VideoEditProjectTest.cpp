#include "project/VideoEditProject.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tessarin {
namespace {

using namespace editTesting;

// -- What is on the wire

const std::string fullJson =
    R"({"activeOutputId":"v1","camera":{"rect":{"height":0.2,"width":0.2,"x":0.7,"y":0.7},"shape":"rounded",)"
    R"("visible":true},"clips":[{"id":"a","mutedRoles":["microphone"],"rate":1.5,"sourceEndMs":3600000,)"
    R"("sourceStartMs":0,"volume":0.5}],"coverFrameMs":40,"crop":{"height":1,"width":0.5,"x":0,"y":0},)"
    R"("narrationAudio":{"strength":0.75},"outputVersions":[{"camera":{"rect":{"height":0.2,"width":0.2,)"
    R"("x":0.7,"y":0.7},"shape":"rounded","visible":true},"cameraAnchor":"canvas","cameraAvoidsPointer":true,)"
    R"("canvas":{"background":{"angleDegrees":45,"color":"#000000","kind":"gradient","secondaryColor":)"
    R"("#ffffffff"},"contentFrame":{"height":0.4,"width":0.3,"x":0.1,"y":0.2},"contentMode":"manual",)"
    R"("cornerRadius":0.1,"heightPixels":1080,"manualScale":2,"offsetX":-0.5,"offsetY":0.5,"padding":0.25,)"
    R"("preset":"portrait9x16","safeArea":"verticalVideo","shadow":true,"widthPixels":1920},)"
    R"("captionStyle":{"fontScale":0.05,"rect":{"height":0.4,"width":0.3,"x":0.1,"y":0.2}},"id":"v1",)"
    R"("name":"Original","shortcutAnchor":"canvas"}],"overlays":[{"endMs":3000,"id":"freeze","kind":"freeze",)"
    R"("sourceTimeMs":500,"startMs":1000}],"revision":7,"schemaVersion":2,"source":{"audioTracks":[{"role":)"
    R"("system","sourceTrackIndex":0},{"role":"microphone","sourceTrackIndex":1}],"camera":{"durationMs":3600000,)"
    R"("heightPixels":480,"path":")" +
    cameraPath + R"(","widthPixels":640},"codec":"hevc","durationMs":3600000,"heightPixels":1080,"path":")" +
    sourcePath + R"(","sessionId":")" + sessionID + R"(","widthPixels":1920}})";

VideoEditProjectDTO fullProject() {
  VideoEditProjectDTO project = cameraProject();
  project.source.codec = RecordingCodec::hevc;
  project.clips[0].rate = 1.5;
  project.clips[0].volume = 0.5;
  project.clips[0].mutedRoles = {VideoEditAudioRole::microphone};
  project.crop.width = 0.5;
  project.overlays = {effect<Kind::freeze>(freeze())};
  project.coverFrameMs = 40;
  project.activeOutputID = "v1";
  project.narrationAudio = {{0.75}};
  VideoOutputVersionDTO one = version("v1");
  one.captionStyle = {{someRect, 0.05}};
  one.camera = cameraLayer();
  one.cameraAvoidsPointer = true;
  one.canvas = {someRect,
                VideoCanvasPresetDTO::portrait9x16,
                1920,
                1080,
                VideoCanvasContentModeDTO::manual,
                2,
                -0.5,
                0.5,
                0.25,
                {VideoCanvasBackgroundKindDTO::gradient, "#000000", "#ffffffff", 45},
                0.1,
                true,
                VideoSafeAreaDTO::verticalVideo};
  one.cameraAnchor = VideoLayerAnchorDTO::canvas;
  one.shortcutAnchor = VideoLayerAnchorDTO::canvas;
  project.outputVersions = {one};
  return project;
}

const std::string plainJson =
    R"({"clips":[{"id":"a","mutedRoles":[],"rate":1,"sourceEndMs":3600000,"sourceStartMs":0,"volume":1}],)"
    R"("crop":{"height":1,"width":1,"x":0,"y":0},"overlays":[],"revision":7,"schemaVersion":2,"source":)"
    R"({"audioTracks":[{"role":"system","sourceTrackIndex":0},{"role":"microphone","sourceTrackIndex":1}],)"
    R"("durationMs":3600000,"heightPixels":1080,"path":")" +
    sourcePath + R"(","sessionId":")" + sessionID + R"(","widthPixels":1920}})";

TEST(VideoEditProject, EncodesEveryField) {
  EXPECT_EQ(json::encode(fullProject()), fullJson);
}

TEST(VideoEditProject, EncodesWithoutWhatIsAbsent) {
  EXPECT_EQ(json::encode(plainProject()), plainJson);
  VideoEditProjectDTO project = plainProject();
  project.outputVersions.emplace();
  project.outputVersions->push_back(version("v"));
  const std::string versions = json::encode(*project.outputVersions);
  EXPECT_EQ(
      versions,
      R"([{"cameraAnchor":"content","canvas":{"background":{"angleDegrees":0,"color":"#000000","kind":)"
      R"("solid","secondaryColor":"#ffffffff"},"contentMode":"fit","cornerRadius":0,"heightPixels":1080,)"
      R"("manualScale":1,"offsetX":0,"offsetY":0,"padding":0,"preset":"original","safeArea":"none",)"
      R"("shadow":false,"widthPixels":1920},"id":"v","name":"Original","shortcutAnchor":"content"}])");
}

TEST(VideoEditProject, DecodesWhatItEncodes) {
  EXPECT_EQ(json::decode<VideoEditProjectDTO>(std::string_view(fullJson)), fullProject());
  EXPECT_EQ(json::decode<VideoEditProjectDTO>(std::string_view(plainJson)), plainProject());
  VideoEditProjectDTO project = fullProject();
  project.overlays = everyEffect();
  project.outputVersions.emplace();
  project.clips.clear();
  project.source.audioTracks.clear();
  EXPECT_EQ(json::decode<VideoEditProjectDTO>(std::string_view(json::encode(project))), project);
}

// The text with one piece replaced, which stands in it.
std::string replaced(std::string text, std::string_view from, std::string_view to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(VideoEditProject, RepairsNothing) {
  const std::string strange =
      replaced(replaced(replaced(plainJson, R"("schemaVersion":2)", R"("schemaVersion":-9)"), R"("rate":1)",
                        R"("rate":-1e300)"),
               R"("width":1,)", R"("width":7,)");
  const auto project = json::decode<VideoEditProjectDTO>(std::string_view(strange));
  EXPECT_EQ(project.schemaVersion, -9);
  EXPECT_EQ(project.clips[0].rate, -1e300);
  EXPECT_EQ(project.crop.width, 7);
}

TEST(VideoEditProject, TakesNullForAbsentAndLooksAtNoOtherKey) {
  const std::string json = replaced(
      plainJson, R"("revision":7)",
      R"("revision":7,"camera":null,"coverFrameMs":null,"outputVersions":null,"activeOutputId":null,)"
      R"("narrationAudio":null,"activeOutputID":7,"title":{})");
  const std::string within = replaced(json, R"("heightPixels":1080)",
                                      R"("heightPixels":1080,"camera":null,"codec":null,"sessionID":7)");
  EXPECT_EQ(json::decode<VideoEditProjectDTO>(std::string_view(within)), plainProject());
}

TEST(VideoEditProject, RefusesByTheFirstFieldThatFails) {
  const struct {
    const std::string json;
    const char* reason;
  } refusals[] = {
      {"[]", "expected an object"},
      {"{}", "missing key: schemaVersion"},
      {R"({"schemaVersion":"2"})", "schemaVersion: expected an integer"},
      {R"({"schemaVersion":2})", "missing key: revision"},
      {R"({"schemaVersion":2,"revision":0.5})", "revision: expected an integer"},
      {R"({"schemaVersion":2,"revision":0})", "missing key: source"},
      {replaced(plainJson, R"("sessionId":)", R"("sessionID":)"), "source: missing key: sessionId"},
      {replaced(plainJson, R"("path":)", R"("file":)"), "source: missing key: path"},
      {replaced(plainJson, R"("durationMs":3600000)", R"("durationMs":3600000.5)"),
       "source: durationMs: expected an integer"},
      {replaced(plainJson, R"("durationMs":3600000)", R"("durationMs":9223372036854775808)"),
       "source: durationMs: expected an integer in range"},
      {replaced(plainJson, R"("widthPixels")", R"("width")"), "source: missing key: widthPixels"},
      {replaced(plainJson, R"("heightPixels")", R"("height")"), "source: missing key: heightPixels"},
      {replaced(plainJson, R"("audioTracks")", R"("tracks")"), "source: missing key: audioTracks"},
      {replaced(plainJson, R"("sourceTrackIndex")", R"("index")"),
       "source: audioTracks: missing key: sourceTrackIndex"},
      {replaced(plainJson, R"("role":"system")", R"("role":"System")"),
       "source: audioTracks: role: unknown string"},
      {replaced(fullJson, R"("codec":"hevc")", R"("codec":"av1")"), "source: codec: unknown string"},
      {replaced(fullJson, R"("widthPixels":640)", R"("width":640)"),
       "source: camera: missing key: widthPixels"},
      {replaced(plainJson, R"("clips")", R"("parts")"), "missing key: clips"},
      {replaced(plainJson, R"("id":"a",)", ""), "clips: missing key: id"},
      {replaced(plainJson, R"("mutedRoles":[])", R"("mutedRoles":["none"])"),
       "clips: mutedRoles: unknown string"},
      {replaced(plainJson, R"("mutedRoles":[],)", ""), "clips: missing key: mutedRoles"},
      {replaced(plainJson, R"("rate":1)", R"("rate":"1")"), "clips: rate: expected a number"},
      {replaced(plainJson, R"("crop")", R"("cut")"), "missing key: crop"},
      {replaced(plainJson, R"("height":1,)", ""), "crop: missing key: height"},
      {replaced(plainJson, R"("overlays":[],)", ""), "missing key: overlays"},
      {replaced(plainJson, R"("overlays":[])", R"("overlays":[{"kind":"sticker"}])"),
       "overlays: kind: unknown string"},
      {replaced(fullJson, R"("coverFrameMs":40)", R"("coverFrameMs":"40")"),
       "coverFrameMs: expected an integer"},
      {replaced(fullJson, R"("contentMode":"manual")", R"("contentMode":"stretch")"),
       "outputVersions: canvas: contentMode: unknown string"},
      {replaced(fullJson, R"("safeArea":"verticalVideo",)", ""),
       "outputVersions: canvas: missing key: safeArea"},
      {replaced(fullJson, R"("angleDegrees":45,)", ""),
       "outputVersions: canvas: background: missing key: angleDegrees"},
      {replaced(fullJson, R"("cameraAnchor":"canvas",)", ""), "outputVersions: missing key: cameraAnchor"},
      {replaced(fullJson, R"("activeOutputId":"v1")", R"("activeOutputId":1)"),
       "activeOutputId: expected a string"},
      {replaced(fullJson, R"({"strength":0.75})", "{}"), "narrationAudio: missing key: strength"},
  };
  for (const auto& refusal : refusals) {
    try {
      (void)json::decode<VideoEditProjectDTO>(std::string_view(refusal.json));
      ADD_FAILURE() << refusal.json;
    } catch (const json::DecodingFailure& failure) {
      EXPECT_STREQ(failure.what(), refusal.reason) << refusal.json;
    }
  }
}

template<class E> void expectNames(const std::vector<std::string_view>& names) {
  EXPECT_EQ(jsonNames(E{}).size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(json::nameOf(static_cast<E>(i)), names[i]);
}

TEST(VideoEditProject, NamesItsChoices) {
  expectNames<VideoEditAudioRole>({"system", "microphone", "mixed"});
  expectNames<VideoCanvasPresetDTO>(
      {"original", "landscape16x9", "portrait9x16", "square", "portrait4x5", "custom"});
  expectNames<VideoCanvasContentModeDTO>({"fit", "fill", "manual"});
  expectNames<VideoCanvasBackgroundKindDTO>({"solid", "gradient", "blur"});
  expectNames<VideoSafeAreaDTO>({"none", "verticalVideo", "squareSocial"});
}

// -- What is derived

TEST(VideoEditProject, FindsItsActiveVersion) {
  VideoEditProjectDTO project = versionsProject();
  EXPECT_EQ(project.activeOutput(), &project.outputVersions->at(0));
  project.activeOutputID = "v2";
  EXPECT_EQ(project.activeOutput(), &project.outputVersions->at(1));
  project.outputVersions->at(0).id = "v2";
  EXPECT_EQ(project.activeOutput(), &project.outputVersions->at(0));
  project.activeOutputID = "v3";
  EXPECT_EQ(project.activeOutput(), nullptr);
  project.activeOutputID.reset();
  EXPECT_EQ(project.activeOutput(), nullptr);
  project.activeOutputID = "";
  project.outputVersions->clear();
  EXPECT_EQ(project.activeOutput(), nullptr);
  project.outputVersions.reset();
  EXPECT_EQ(project.activeOutput(), nullptr);
}

TEST(VideoEditProject, TakesTheCameraOfTheActiveVersionFirst) {
  VideoEditProjectDTO project = versionsProject();
  EXPECT_EQ(project.cameraInForce(), nullptr);
  project.camera = cameraLayer();
  EXPECT_EQ(project.cameraInForce(), &*project.camera);
  project.outputVersions->at(1).camera = cameraLayer();
  EXPECT_EQ(project.cameraInForce(), &*project.camera);
  project.activeOutputID = "v2";
  EXPECT_EQ(project.cameraInForce(), &*project.outputVersions->at(1).camera);
  project.camera.reset();
  EXPECT_EQ(project.cameraInForce(), &*project.outputVersions->at(1).camera);
  project.outputVersions.reset();
  EXPECT_EQ(project.cameraInForce(), nullptr);
}

TEST(VideoEditProject, RoundsPixelsDownToEvenNumbers) {
  const std::pair<double, std::int64_t> cases[] = {{-5, 2},
                                                   {0, 2},
                                                   {1.9, 2},
                                                   {2, 2},
                                                   {2.9, 2},
                                                   {3, 2},
                                                   {3.999, 2},
                                                   {4, 4},
                                                   {7.9, 6},
                                                   {8, 8},
                                                   {1919.99, 1918},
                                                   {1920, 1920},
                                                   {1921, 1920},
                                                   {std::numeric_limits<double>::quiet_NaN(), 2},
                                                   {-std::numeric_limits<double>::infinity(), 2},
                                                   {0x1p40, std::int64_t{1} << 40}};
  for (const auto& [value, pixels] : cases)
    EXPECT_EQ(VideoEditProjectDTO::evenFloor(value), pixels) << value;
  // What no picture has stays a number, and an even one.
  for (const double huge : {0x1p63, 1e300, std::numeric_limits<double>::infinity()}) {
    EXPECT_GT(VideoEditProjectDTO::evenFloor(huge), std::int64_t{1} << 60);
    EXPECT_EQ(VideoEditProjectDTO::evenFloor(huge) % 2, 0);
  }
}

TEST(VideoEditProject, SeesWhetherAVersionChangesTheFrame) {
  using Canvas = VideoCanvasConfigDTO;
  const struct {
    const char* name;
    void (*change)(Canvas&);
    bool changesFrame;
  } cases[] = {
      {"nothing", [](Canvas&) {}, false},
      {"width", [](Canvas& canvas) { canvas.widthPixels = 1918; }, true},
      {"height", [](Canvas& canvas) { canvas.heightPixels = 1082; }, true},
      {"contentFrame",
       [](Canvas& canvas) {
         canvas.contentFrame = {{0, 0, 1, 1}};
       },
       true},
      {"fill", [](Canvas& canvas) { canvas.contentMode = VideoCanvasContentModeDTO::fill; }, true},
      {"manual", [](Canvas& canvas) { canvas.contentMode = VideoCanvasContentModeDTO::manual; }, true},
      {"offsetX", [](Canvas& canvas) { canvas.offsetX = -0.01; }, true},
      {"offsetY", [](Canvas& canvas) { canvas.offsetY = 0.01; }, true},
      {"padding", [](Canvas& canvas) { canvas.padding = 0.01; }, true},
      {"cornerRadius", [](Canvas& canvas) { canvas.cornerRadius = 0.01; }, true},
      {"shadow", [](Canvas& canvas) { canvas.shadow = true; }, true},
      {"manualScale", [](Canvas& canvas) { canvas.manualScale = 2; }, false},
      {"background", [](Canvas& canvas) { canvas.background.kind = VideoCanvasBackgroundKindDTO::blur; },
       false},
      {"preset", [](Canvas& canvas) { canvas.preset = VideoCanvasPresetDTO::custom; }, false},
      {"safeArea", [](Canvas& canvas) { canvas.safeArea = VideoSafeAreaDTO::squareSocial; }, false},
  };
  for (const auto& each : cases) {
    VideoEditProjectDTO project = versionsProject();
    each.change(project.outputVersions->at(0).canvas);
    EXPECT_EQ(project.activeOutputChangesFrame(), each.changesFrame) << each.name;
    project.activeOutputID = "v3";
    EXPECT_FALSE(project.activeOutputChangesFrame()) << each.name;
  }
}

TEST(VideoEditProject, ComparesTheFrameWithTheCroppedPicture) {
  VideoEditProjectDTO project = versionsProject();
  project.crop = {0.25, 0, 0.5, 0.333}; // 960 x 359.64
  EXPECT_TRUE(project.activeOutputChangesFrame());
  project.outputVersions->at(0).canvas.widthPixels = 960;
  project.outputVersions->at(0).canvas.heightPixels = 360;
  EXPECT_TRUE(project.activeOutputChangesFrame());
  project.outputVersions->at(0).canvas.heightPixels = 358;
  EXPECT_FALSE(project.activeOutputChangesFrame());
  EXPECT_EQ(project.croppedWidthPixels(), 960);
  EXPECT_EQ(project.croppedHeightPixels(), 358);
  // An odd source.
  project = versionsProject();
  project.source.widthPixels = 1921;
  project.source.heightPixels = 1081;
  EXPECT_FALSE(project.activeOutputChangesFrame());
}

VideoEditEffectDTO textNamed(const std::string& id) {
  TextVideoEffectDTO one = text();
  one.id = id;
  one.visible = true;
  return effect<Kind::text>(one);
}

TEST(VideoEditProject, PutsCaptionsWhereTheVersionWantsThem) {
  VideoEditProjectDTO project = versionsProject();
  HighlightVideoEffectDTO noText = highlight();
  noText.id = "caption-en-1";
  project.overlays = {textNamed("caption-zh-9"),  textNamed("caption-fr-1"), effect<Kind::highlight>(noText),
                      textNamed("caption-en-"),   textNamed("caption-en"),   textNamed("Caption-en-1"),
                      textNamed(" caption-en-1"), textNamed("caption-zh")};
  project.outputVersions->at(0).captionStyle = {{{0.2, 0.8, 0.6, 0.1}, 0.07}};

  std::vector<VideoEditEffectDTO> expected = project.overlays;
  for (const std::size_t i : {std::size_t{0}, std::size_t{3}}) {
    TextVideoEffectDTO& one = *expected[i].as<Kind::text>();
    one.rect = {0.2, 0.8, 0.6, 0.1};
    one.fontScale = 0.07;
    one.anchor = VideoLayerAnchorDTO::canvas;
  }
  EXPECT_EQ(project.outputEffects(), expected);

  for (const char* const active : {"v2", "v3"}) {
    project.activeOutputID = active;
    EXPECT_EQ(project.outputEffects(), project.overlays) << active;
  }
  project.activeOutputID.reset();
  EXPECT_EQ(project.outputEffects(), project.overlays);
  project.outputVersions.reset();
  EXPECT_EQ(project.outputEffects(), project.overlays);
}

TEST(VideoEditProject, HandsOutItsClipsAsSpans) {
  VideoEditProjectDTO project = plainProject();
  project.clips = {clip("a", 5, 1000, 2), clip("b", 2000, 2100, 0.5)};
  EXPECT_EQ(project.clipSpans(), (std::vector<ClipSpan>{{5, 1000, 2}, {2000, 2100, 0.5}}));
  project.clips.clear();
  EXPECT_TRUE(project.clipSpans().empty());
}

TEST(VideoEditProject, MovesTheCamerasWayToItsClips) {
  VideoEditProjectDTO project = cameraProject();
  project.camera->recordedPositions = {{{0, someRect}}};
  project.clips = {clip("a", 5000, 6000), clip("b", 9000, 10'000)};
  EXPECT_EQ(project.camera->mappedToOutput(project.clipSpans()).recordedPositions,
            (std::vector<VideoCameraPositionDTO>{{0, someRect}, {1000, someRect}}));
}

} // namespace
} // namespace tessarin
