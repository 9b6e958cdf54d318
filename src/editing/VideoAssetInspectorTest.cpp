#include "editing/VideoAssetInspector.hpp"

#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"
#include "support/ScriptedMovieEditing.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

using enum VideoAssetInspectionError;
using Roles = std::vector<VideoEditAudioRole>;
using enum VideoEditAudioRole;

constexpr auto path = "/0A6B3C1E-58E4-4BC0-9C5B-3E0B40B51E2F/recording.mp4";

// One video track of 640x360 and a number of sound tracks, twelve seconds long.
MediaAsset asset(std::size_t audioTrackCount = 0) {
  MediaAsset result;
  result.isComposable = true;
  result.duration = MediaTime(12, 1);
  result.videoTracks.emplace_back();
  result.videoTracks[0].naturalWidth = 640;
  result.videoTracks[0].naturalHeight = 360;
  result.audioTracks.resize(audioTrackCount);
  return result;
}

VideoAssetInspectionPayload inspected(const MediaAsset& it, bool systemAudio = false,
                                      bool microphone = false) {
  ScriptedMediaAssets assets;
  assets.files[path].asset = it;
  return VideoAssetInspector(assets).inspect({{"", path, systemAudio, microphone}, path});
}

std::optional<VideoAssetInspectionError> failureOfAsset(const MediaAsset& it) {
  return failureOf<VideoAssetInspectionError>([&] { (void)inspected(it); });
}

TEST(VideoAssetInspector, tellsLengthSizeAndRoles) {
  EXPECT_EQ(inspected(asset(2), true, true),
            (VideoAssetInspectionPayload{path, 12000, 640, 360, {{0, system}, {1, microphone}}}));
  EXPECT_EQ(inspected(asset()), (VideoAssetInspectionPayload{path, 12000, 640, 360, {}}));
}

TEST(VideoAssetInspector, givesRolesByWhatWasExpected) {
  const struct {
    bool systemAudio;
    bool microphone;
    std::size_t trackCount;
    std::optional<Roles> roles;
  } cases[] = {
      {true, true, 0, {}},
      {true, true, 1, Roles{mixed}},
      {true, true, 2, Roles{system, microphone}},
      {true, true, 3, {}},
      {true, false, 0, {}},
      {true, false, 1, Roles{system}},
      {true, false, 2, {}},
      {false, true, 0, {}},
      {false, true, 1, Roles{VideoEditAudioRole::microphone}},
      {false, true, 2, {}},
      {false, false, 0, Roles{}},
      {false, false, 1, {}},
      {false, false, 2, {}},
  };
  for (const auto& it : cases) {
    const auto roles = [&] {
      return VideoAssetInspector::audioRoles(it.systemAudio, it.microphone, it.trackCount);
    };
    if (it.roles)
      EXPECT_EQ(roles(), *it.roles) << it.systemAudio << it.microphone << it.trackCount;
    else
      EXPECT_EQ(failureOf<VideoAssetInspectionError>([&] { (void)roles(); }), invalidAudioCapability)
          << it.systemAudio << it.microphone << it.trackCount;
  }
}

TEST(VideoAssetInspector, tellsTheSizeAsItIsShown) {
  auto it = asset();
  it.videoTracks[0].preferredTransform = {0, 1, -1, 0, 360, 0};
  EXPECT_EQ(inspected(it).widthPixels, 360);
  EXPECT_EQ(inspected(it).heightPixels, 640);
  it.videoTracks[0].preferredTransform = {};
  it.videoTracks[0].naturalWidth = 639.5;
  it.videoTracks[0].naturalHeight = 360.49;
  EXPECT_EQ(inspected(it).widthPixels, 640);
  EXPECT_EQ(inspected(it).heightPixels, 360);
  it.videoTracks[0].naturalHeight = 0.5;
  EXPECT_EQ(inspected(it).heightPixels, 1);
}

TEST(VideoAssetInspector, roundsTheLength) {
  auto it = asset();
  it.duration = MediaTime(10005, 10000);
  EXPECT_EQ(inspected(it).durationMs, 1001);
  it.duration = MediaTime(1, 2000);
  EXPECT_EQ(inspected(it).durationMs, 1);
}

TEST(VideoAssetInspector, refusesWhatCannotBeEdited) {
  EXPECT_EQ(failureOf<VideoAssetInspectionError>([] {
              ScriptedMediaAssets none;
              (void)VideoAssetInspector(none).inspect({{"", path, false, false}, path});
            }),
            invalidMedia);
  auto it = asset();
  it.isComposable = false;
  it.duration = {};
  EXPECT_EQ(failureOfAsset(it), notComposable);
  for (const MediaTime duration : {MediaTime(), MediaTime::zero(), MediaTime(-5, 1), MediaTime(1, 2001)}) {
    it = asset();
    it.duration = duration;
    it.videoTracks.clear();
    EXPECT_EQ(failureOfAsset(it), invalidDuration) << duration.seconds();
  }
  it = asset(1);
  it.videoTracks.clear();
  EXPECT_EQ(failureOfAsset(it), missingVideo);
  for (const double size : {0.0, 0.49, -5.0 + 5.0, std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::infinity()}) {
    it = asset(1);
    it.videoTracks[0].naturalHeight = size;
    EXPECT_EQ(failureOfAsset(it), invalidDimensions) << size;
  }
  EXPECT_EQ(failureOfAsset(asset(1)), invalidAudioCapability);
}

TEST(VideoAssetInspector, tellsOnlySettingsThatDoNotFitApart) {
  EXPECT_EQ(messageOf(invalidAudioCapability), "The recording audio tracks do not match its saved settings.");
  for (const auto error : {invalidMedia, missingVideo, invalidDuration, invalidDimensions, notComposable})
    EXPECT_EQ(messageOf(error), "The recording cannot be opened for video editing.");
}

} // namespace
} // namespace tessarin
