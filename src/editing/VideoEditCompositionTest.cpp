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

} // namespace
} // namespace tessarin
