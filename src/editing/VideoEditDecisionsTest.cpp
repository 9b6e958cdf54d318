#include "editing/VideoEditDecisions.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace tessarin {
namespace {

using namespace editTesting;

struct Case {
  const char* name;
  std::function<void(VideoEditProjectDTO&)> change;
  bool isPainted;
  bool isTranscoded;
};

void expectAll(const VideoEditProjectDTO& project, std::initializer_list<Case> cases) {
  for (const Case& each : cases) {
    VideoEditProjectDTO changed = project;
    each.change(changed);
    EXPECT_EQ(requiresCustomCompositor(changed), each.isPainted) << each.name;
    EXPECT_EQ(requiresTranscoding(changed), each.isTranscoded) << each.name;
  }
}

TEST(VideoEditDecisions, CopiesAMereCut) {
  expectAll(plainProject(), {{"nothing", [](auto&) {}, false, false},
                             {"two clips",
                              [](auto& project) {
                                project.clips = {clip("a", 0, 1000), clip("b", 5000, 6000)};
                              },
                              false, false},
                             {"a cover", [](auto& project) { project.coverFrameMs = 5; }, false, false}});
}

TEST(VideoEditDecisions, PaintsForACrop) {
  const double beside = std::nextafter(1.0, 0.0);
  expectAll(plainProject(), {{"x", [](auto& project) { project.crop.x = 1e-9; }, true, true},
                             {"y", [](auto& project) { project.crop.y = 1e-9; }, true, true},
                             {"width", [&](auto& project) { project.crop.width = beside; }, true, true},
                             {"height", [&](auto& project) { project.crop.height = beside; }, true, true}});
}

TEST(VideoEditDecisions, PaintsForOverlaysEvenIfNoneIsShown) {
  expectAll(plainProject(), {{"a text that is hidden",
                              [](auto& project) {
                                TextVideoEffectDTO hidden = text();
                                hidden.visible = false;
                                project.overlays = {effect<Kind::text>(hidden)};
                              },
                              true, true}});
}

TEST(VideoEditDecisions, PaintsForACameraThatIsShown) {
  VideoEditProjectDTO project = cameraProject();
  project.outputVersions = {version("v1")};
  project.activeOutputID = "v1";
  const auto layer = [](bool visible) {
    VideoCameraLayerDTO one = cameraLayer();
    one.visible = visible;
    return one;
  };
  expectAll(project, {{"the project's", [](auto&) {}, true, true},
                      {"hidden", [&](auto& one) { one.camera = layer(false); }, false, false},
                      {"none", [](auto& one) { one.camera.reset(); }, false, false},
                      {"hidden by the version",
                       [&](auto& one) { one.outputVersions->front().camera = layer(false); }, false, false},
                      {"shown by the version",
                       [&](auto& one) {
                         one.camera = layer(false);
                         one.outputVersions->front().camera = layer(true);
                       },
                       true, true},
                      {"shown by a version that is not active",
                       [&](auto& one) {
                         one.camera = layer(false);
                         one.outputVersions->push_back(version("v2"));
                         one.outputVersions->back().camera = layer(true);
                       },
                       false, false}});
}

TEST(VideoEditDecisions, PaintsForAVersionThatChangesTheFrame) {
  expectAll(
      versionsProject(),
      {{"as it is", [](auto&) {}, false, false},
       {"with a shadow", [](auto& one) { one.outputVersions->front().canvas.shadow = true; }, true, true},
       {"another size", [](auto& one) { one.outputVersions->front().canvas.widthPixels = 1280; }, true, true},
       {"another name", [](auto& one) { one.outputVersions->front().name = "x"; }, false, false}});
}

TEST(VideoEditDecisions, TranscodesForSpeedVolumeAndMutedRoles) {
  expectAll(
      plainProject(),
      {{"fast", [](auto& one) { one.clips[0].rate = 2; }, false, true},
       {"slow", [](auto& one) { one.clips[0].rate = 0.5; }, false, true},
       {"silent", [](auto& one) { one.clips[0].volume = 0; }, false, true},
       {"loud", [](auto& one) { one.clips[0].volume = 1.5; }, false, true},
       {"muted", [](auto& one) { one.clips[0].mutedRoles = {VideoEditAudioRole::microphone}; }, false, true},
       {"the second clip of two",
        [](auto& one) {
          one.clips = {clip("a", 0, 1000), clip("b", 1000, 2000, 3)};
        },
        false, true}});
}

} // namespace
} // namespace tessarin
