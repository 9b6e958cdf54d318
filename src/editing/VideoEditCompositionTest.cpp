#include "editing/VideoEditComposition.hpp"

#include "base/FileSystem.hpp"
#include "model/MediaErrors.hpp"
#include "project/EditProjectTesting.hpp"
#include "support/EditProjects.hpp"
#include "support/FailureOf.hpp"
#include "support/ScriptedMovieEditing.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tessarin {
namespace {

using editTesting::effect;
using editTesting::Kind;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

// Ten seconds of 640x360 in two clips, 0 to 4000 and, at twice the speed, 6000 to 10000, with a zoom and a
// trace that shows nothing.
class VideoEditCompositionTest : public testing::Test {
 protected:
  TemporaryDirectory root;
  VideoEditExportRequestDTO request = editRequest(root.path());
  ScriptedMediaAssets assets;
  ZoomVideoEffectDTO zoom = editTesting::zoom(); // 1000 to 3000
  InteractionVideoEffectDTO interaction = editTesting::interaction();

  void SetUp() override {
    const std::string& source = request.project.source.path;
    fs::create_directories(fs::path(source).parent_path());
    MediaAsset& asset = assets.files[source].asset;
    asset.isComposable = true;
    asset.duration = MediaTime(10, 1);
    asset.videoTracks.emplace_back();
    asset.videoTracks[0].naturalWidth = 640;
    asset.videoTracks[0].naturalHeight = 360;
    asset.audioTracks.resize(2);
    request.project.clips = {editTesting::clip("a", 0, 4000), editTesting::clip("b", 6000, 10'000, 2)};
    zoom.followCursor = true;
    interaction.sourcePath = (fs::path(source).parent_path() / "interaction-events.jsonl").string();
    interaction.endMs = 6000;
    interaction.visible = false;
  }

  void writeTrace(const std::string& text) { std::ofstream(interaction.sourcePath) << text; }

  VideoEffectCompositionInstruction instruction() {
    request.project.overlays = {effect<Kind::zoom>(zoom), effect<Kind::interaction>(interaction)};
    return composition().instruction.value();
  }
  VideoEditComposition composition() {
    return buildComposition({request, request.project.source.path, std::nullopt, request.outputPath}, assets,
                            machineFileSystem());
  }
};

TEST_F(VideoEditCompositionTest, PlansTheWayOfAZoomThatFollows) {
  // In the source; the second clip begins at 6000, which is 4000 of the output.
  writeTrace(R"({"kind":"cursor","timestampMs":1500,"x":1,"y":0.5,"coordinateSpace":"captureTopLeft"})"
             "\n"
             R"({"kind":"cursor","timestampMs":6000,"x":0.5,"y":0.75})"
             "\n");
  zoom.endMs = 5000;
  const VideoEffectCompositionInstruction built = instruction();
  EXPECT_THAT(built.interactionIndex.cursors(), SizeIs(2));
  const CursorFollowPlan& plan = built.followPlan;
  using Bound = CursorFollowPlan::ClipBound;
  EXPECT_THAT(plan.clipBounds(), testing::ElementsAre(Bound{0, 4000}, Bound{4000, 6000}));
  ASSERT_TRUE(plan.paths().contains("zoom"));
  EXPECT_THAT(plan.paths().at("zoom"), SizeIs(2));
  EXPECT_EQ(plan.transform(&zoom, 1496), (VideoZoomTransform{2, -0.5, -0.5}));
  EXPECT_LT(plan.transform(&zoom, 2200).x, -0.9);
  EXPECT_EQ(plan.transform(&zoom, 4000), (VideoZoomTransform{2, -0.5, 0}));
}

TEST_F(VideoEditCompositionTest, CountsThePointerWithinTheCrop) {
  writeTrace(R"({"kind":"cursor","timestampMs":1500,"x":0.75,"y":0.5,"coordinateSpace":"captureTopLeft"})"
             "\n");
  request.project.crop = {0.5, 0, 0.5, 1};
  EXPECT_EQ(instruction().followPlan.transform(&zoom, 2200), (VideoZoomTransform{2, -0.5, -0.5}));
  request.project.crop = {0.25, 0, 0.5, 1};
  EXPECT_LT(instruction().followPlan.transform(&zoom, 2200).x, -0.9);
}

TEST_F(VideoEditCompositionTest, PlansNoWayWhereNothingFollows) {
  zoom.followCursor = false;
  const VideoEffectCompositionInstruction built = instruction(); // there is no trace to be read
  EXPECT_THAT(built.followPlan.paths(), IsEmpty());
  EXPECT_THAT(built.followPlan.clipBounds(), IsEmpty());
}

TEST_F(VideoEditCompositionTest, NeedsTheTraceToFollow) {
  EXPECT_EQ(failureOf<VideoEditExportError>([&] { (void)instruction(); }),
            VideoEditExportError::invalidProject);
  writeTrace("");
  EXPECT_THAT(instruction().followPlan.paths(), SizeIs(1));
  request.project.overlays = {effect<Kind::zoom>(zoom)};
  EXPECT_EQ(failureOf<VideoEditExportError>([&] { (void)composition(); }),
            VideoEditExportError::invalidProject);
}

TEST_F(VideoEditCompositionTest, ReadsTheTraceOfAnEffectThatShowsThoughNothingFollows) {
  zoom.followCursor.reset();
  interaction.visible = true;
  writeTrace(R"({"kind":"cursor","timestampMs":6100,"x":0.5,"y":0.75})"
             "\n");
  const VideoEffectCompositionInstruction built = instruction();
  ASSERT_THAT(built.interactionIndex.cursors(), SizeIs(1));
  EXPECT_EQ(built.interactionIndex.cursors()[0].timestampMs, 4050); // at twice the speed
  EXPECT_THAT(built.followPlan.paths(), IsEmpty());
}

TEST_F(VideoEditCompositionTest, TakesEachFrozenPictureOnce) {
  assets.pictureWidth = [](MediaTime time) {
    return static_cast<std::int32_t>(time.convertedTo(1000).value());
  };
  const auto add = [&](const char* id, std::int64_t sourceTimeMs) {
    FreezeVideoEffectDTO freeze = editTesting::freeze();
    freeze.id = id;
    freeze.sourceTimeMs = sourceTimeMs;
    request.project.overlays.push_back(effect<Kind::freeze>(freeze));
  };
  add("a", 9999); // which no clip shows
  add("b", 500);
  add("c", 9999);
  const auto frames = composition().instruction.value().freezeFrames;
  EXPECT_THAT(assets.pictureTimes(),
              testing::ElementsAre(MediaTime::milliseconds(9999), MediaTime::milliseconds(500)));
  ASSERT_THAT(frames, SizeIs(2));
  EXPECT_EQ(frames.at(500).view.width, 500);
  EXPECT_EQ(frames.at(9999).view.width, 9999);

  assets.pictureWidth = [](MediaTime) { return std::nullopt; };
  EXPECT_THROW((void)composition(), MovieEditingFailure); // as it is
}

TEST_F(VideoEditCompositionTest, IsOfTheSizeOfTheActiveVersion) {
  request.project.crop = {0.25, 0, 0.5, 1};
  VideoEditComposition built = composition();
  EXPECT_EQ(built.instruction.value().contentRenderSize, (SizeDTO{320, 360}));
  EXPECT_EQ(built.instruction.value().renderSize, (SizeDTO{320, 360}));
  EXPECT_EQ(built.expectedSize, (SizeDTO{320, 360}));

  VideoOutputVersionDTO tall = editTesting::version("tall");
  tall.canvas.preset = VideoCanvasPresetDTO::portrait9x16;
  tall.canvas.widthPixels = 1080;
  tall.canvas.heightPixels = 1920;
  request.project.outputVersions = {tall};
  request.project.activeOutputID = "tall";
  built = composition();
  EXPECT_EQ(built.instruction.value().contentRenderSize, (SizeDTO{320, 360}));
  EXPECT_EQ(built.instruction.value().renderSize, (SizeDTO{1080, 1920}));
  EXPECT_EQ(built.expectedSize, (SizeDTO{1080, 1920}));
  EXPECT_EQ(built.instruction.value().output, tall);
}

TEST_F(VideoEditCompositionTest, MovesTheCameraThatCountsToTheOutput) {
  const std::string path = (fs::path(request.project.source.path).parent_path() / "camera.mp4").string();
  request.project.source.camera = {{path, 10'000, 320, 240}};
  VideoCameraLayerDTO own = editCameraLayer();
  own.recordedPositions = {{0, {0, 0, 0.25, 0.25}}, {8000, {0.5, 0, 0.25, 0.25}}};
  request.project.camera = own;
  request.project.camera->visible = false;
  VideoOutputVersionDTO version = editTesting::version("v");
  version.canvas.widthPixels = 640;
  version.canvas.heightPixels = 360;
  version.camera = own;
  request.project.outputVersions = {version};
  request.project.activeOutputID = "v";
  MediaAsset& asset = assets.files[path].asset;
  asset.isComposable = true;
  asset.videoTracks.emplace_back();
  asset.videoTracks[0].naturalWidth = 320;
  asset.videoTracks[0].naturalHeight = 240;

  const VideoEffectCompositionInstruction built =
      buildComposition({request, request.project.source.path, path, request.outputPath}, assets,
                       machineFileSystem())
          .instruction.value();
  ASSERT_TRUE(built.cameraTrack);
  EXPECT_EQ(built.cameraTrack->naturalWidth, 320);
  ASSERT_TRUE(built.camera);
  EXPECT_TRUE(built.camera->visible);
  const std::vector<VideoCameraPositionDTO> moved{
      {0, {0, 0, 0.25, 0.25}}, {4000, {0, 0, 0.25, 0.25}}, {5000, {0.5, 0, 0.25, 0.25}}};
  EXPECT_EQ(built.camera->recordedPositions, moved);
}

} // namespace
} // namespace tessarin
