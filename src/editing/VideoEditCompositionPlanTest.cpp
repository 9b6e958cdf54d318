#include "editing/VideoEditCompositionPlan.hpp"

#include "model/MediaErrors.hpp"
#include "project/EditProjectTesting.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace editTesting;

MediaTime ms(std::int64_t value) {
  return MediaTime::milliseconds(value);
}

TEST(VideoEditCompositionPlan, LaysAllOfARecording) {
  const VideoEditCompositionPlan plan(plainProject());
  const MediaTimeRange whole{ms(0), ms(3'600'000)};
  EXPECT_EQ(plan.insertions,
            (std::vector<VideoEditCompositionInsertion>{{whole, ms(0), ms(3'600'000), 1.0}}));
  EXPECT_EQ(plan.audioInstructions,
            (std::vector<VideoEditAudioInstruction>{{0, VideoEditAudioRole::system, whole, 1.0F},
                                                    {1, VideoEditAudioRole::microphone, whole, 1.0F}}));
  EXPECT_EQ(plan.outputDuration, ms(3'600'000));
  EXPECT_EQ(plan.outputDuration.timescale(), 1000);
}

TEST(VideoEditCompositionPlan, LaysClipsEndToEndAtTheirRates) {
  VideoEditProjectDTO project = plainProject();
  // 1001 / 2 and 1001 / 3 are rounded: 501 and 334. 100 / 1.5 is 67.
  project.clips = {clip("a", 100, 1101, 2), clip("b", 2000, 3001, 3), clip("c", 3001, 3101, 0.5),
                   clip("d", 4000, 4100, 1.5)};
  const VideoEditCompositionPlan plan(project);
  EXPECT_EQ(plan.insertions,
            (std::vector<VideoEditCompositionInsertion>{{{ms(100), ms(1001)}, ms(0), ms(501), 2.0},
                                                        {{ms(2000), ms(1001)}, ms(501), ms(334), 3.0},
                                                        {{ms(3001), ms(100)}, ms(835), ms(200), 0.5},
                                                        {{ms(4000), ms(100)}, ms(1035), ms(67), 1.5}}));
  EXPECT_EQ(plan.outputDuration, ms(1102));
  for (const VideoEditCompositionInsertion& each : plan.insertions) {
    EXPECT_EQ(each.sourceRange.start.timescale(), 1000);
    EXPECT_EQ(each.sourceRange.duration.timescale(), 1000);
    EXPECT_EQ(each.outputStart.timescale(), 1000);
    EXPECT_EQ(each.outputDuration.timescale(), 1000);
  }
}

TEST(VideoEditCompositionPlan, MutesByTheRolesOfEachClip) {
  VideoEditProjectDTO project = plainProject();
  project.source.audioTracks = {{3, VideoEditAudioRole::microphone}, {0, VideoEditAudioRole::system}};
  project.clips = {clip("a", 0, 1000), clip("b", 1000, 2000, 2), clip("c", 2000, 3000)};
  project.clips[0].mutedRoles = {VideoEditAudioRole::microphone};
  project.clips[0].volume = 0.3;
  project.clips[1].mutedRoles = {VideoEditAudioRole::system, VideoEditAudioRole::microphone};
  project.clips[2].volume = 2;
  const VideoEditCompositionPlan plan(project);
  const MediaTimeRange a{ms(0), ms(1000)};
  const MediaTimeRange b{ms(1000), ms(500)};
  const MediaTimeRange c{ms(1500), ms(1000)};
  EXPECT_EQ(plan.audioInstructions,
            (std::vector<VideoEditAudioInstruction>{{3, VideoEditAudioRole::microphone, a, 0.0F},
                                                    {0, VideoEditAudioRole::system, a, 0.3F},
                                                    {3, VideoEditAudioRole::microphone, b, 0.0F},
                                                    {0, VideoEditAudioRole::system, b, 0.0F},
                                                    {3, VideoEditAudioRole::microphone, c, 2.0F},
                                                    {0, VideoEditAudioRole::system, c, 2.0F}}));
}

TEST(VideoEditCompositionPlan, NeedsNoSound) {
  VideoEditProjectDTO project = plainProject();
  project.source.audioTracks.clear();
  EXPECT_TRUE(VideoEditCompositionPlan(project).audioInstructions.empty());
}

TEST(VideoEditCompositionPlan, ChecksTheProjectFirst) {
  const auto failureOfPlan = [](const VideoEditProjectDTO& project) {
    return failureOf<VideoEditExportError>([&] { VideoEditCompositionPlan{project}; });
  };
  EXPECT_EQ(failureOfPlan(plainProject()), std::nullopt);
  VideoEditProjectDTO project = plainProject();
  project.clips[0].rate = 1.25;
  EXPECT_EQ(failureOfPlan(project), VideoEditExportError::invalidProject);
  project = plainProject();
  project.crop.width = 0.01;
  EXPECT_EQ(failureOfPlan(project), VideoEditExportError::invalidCrop);
}

} // namespace
} // namespace tessarin
