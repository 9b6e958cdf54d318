#include "project/VideoEditProject.hpp"

#include "project/EditValidationTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tessarin {
namespace {

using namespace editTesting;

TEST(VideoEditProjectValidation, TakesWhatIsWhole) {
  EXPECT_EQ(outcomeOf(plainProject()), passes);
  EXPECT_EQ(outcomeOf(cameraProject()), passes);
  EXPECT_EQ(outcomeOf(versionsProject()), passes);
  Project project = cameraProject();
  project.overlays = everyEffect();
  EXPECT_EQ(outcomeOf(project), passes);
}

TEST(VideoEditProjectValidation, ChecksTheNarration) {
  const auto strength = [](double value) {
    return [value](Project& project) { project.narrationAudio = {{value}}; };
  };
  expectAll(plainProject(), {{"0.25", strength(0.25), passes},
                             {"0.5", strength(0.5), passes},
                             {"0.75", strength(0.75), passes},
                             {"1", strength(1), passes},
                             {"0.3", strength(0.3), fails},
                             {"0", strength(0), fails},
                             {"1.25", strength(1.25), fails},
                             {"a hair beside 0.5", strength(std::nextafter(0.5, 1)), fails},
                             {"no number", strength(noNumber), fails},
                             {"no microphone",
                              [](Project& project) {
                                project.narrationAudio = {{0.5}};
                                project.source.audioTracks = {{0, Role::system}};
                              },
                              fails},
                             {"mixed sound",
                              [](Project& project) {
                                project.narrationAudio = {{0.5}};
                                project.source.audioTracks = {{0, Role::mixed}};
                              },
                              fails},
                             {"only a microphone",
                              [](Project& project) {
                                project.narrationAudio = {{0.5}};
                                project.source.audioTracks = {{0, Role::microphone}};
                              },
                              passes}});
}

TEST(VideoEditProjectValidation, ChecksSchemaAndSource) {
  expectAll(
      plainProject(),
      {{"schema 1", [](Project& project) { project.schemaVersion = 1; }, fails},
       {"schema 3", [](Project& project) { project.schemaVersion = 3; }, fails},
       {"revision 0", [](Project& project) { project.revision = 0; }, passes},
       {"revision -1", [](Project& project) { project.revision = -1; }, fails},
       {"another session", [](Project& project) { project.source.sessionID.back() = '0'; }, fails},
       {"the session in lower case",
        [](Project& project) { project.source.sessionID = "0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69"; }, fails},
       {"another file", [](Project& project) { project.source.path = session + "/screen.mp4"; }, fails},
       {"no length", [](Project& project) { project.source.durationMs = 0; }, fails},
       {"no width", [](Project& project) { project.source.widthPixels = 0; }, fails},
       {"no height", [](Project& project) { project.source.heightPixels = 0; }, fails},
       {"a pixel", [](Project& project) { project.source.widthPixels = project.source.heightPixels = 1; },
        passes}});
}

TEST(VideoEditProjectValidation, ChecksTheTracksOfSound) {
  const auto tracks = [](std::vector<VideoEditAudioTrackDTO> list) {
    return [list](Project& project) { project.source.audioTracks = list; };
  };
  expectAll(plainProject(),
            {{"none", tracks({}), passes},
             {"mixed alone", tracks({{0, Role::mixed}}), passes},
             {"any numbers", tracks({{-7, Role::system}, {99, Role::microphone}}), passes},
             {"a role twice", tracks({{0, Role::system}, {1, Role::system}}), fails},
             {"a track twice", tracks({{1, Role::system}, {1, Role::microphone}}), fails},
             {"mixed and another", tracks({{0, Role::mixed}, {1, Role::system}}), fails},
             {"another and mixed", tracks({{0, Role::microphone}, {1, Role::mixed}}), fails},
             {"all three", tracks({{0, Role::system}, {1, Role::microphone}, {2, Role::mixed}}), fails}});
}

TEST(VideoEditProjectValidation, ChecksTheCamerasFile) {
  const auto path = [](const std::string& to) {
    return [to](Project& project) { project.source.camera->path = to; };
  };
  const auto duration = [](std::int64_t ms) {
    return [ms](Project& project) { project.source.camera->durationMs = ms; };
  };
  expectAll(cameraProject(),
            {{"no file for the layer", [](Project& project) { project.source.camera.reset(); }, fails},
             {"no layer for the file", [](Project& project) { project.camera.reset(); }, fails},
             {"neither",
              [](Project& project) {
                project.source.camera.reset();
                project.camera.reset();
              },
              passes},
             {"in another directory", path("/rec/camera.mp4"), fails},
             {"relative", path(cameraPath.substr(1)), fails},
             {"another name", path(session + "/Camera.mp4"), fails},
             {"1500 ms shorter", duration(3'598'500), passes},
             {"1501 ms shorter", duration(3'598'499), fails},
             {"1500 ms longer", duration(3'601'500), passes},
             {"1501 ms longer", duration(3'601'501), fails},
             {"as long as can be", duration(std::numeric_limits<std::int64_t>::max()), fails},
             {"as short as can be", duration(std::numeric_limits<std::int64_t>::min()), fails},
             {"no width", [](Project& project) { project.source.camera->widthPixels = 0; }, fails},
             {"no height", [](Project& project) { project.source.camera->heightPixels = 0; }, fails},
             {"a pixel",
              [](Project& project) {
                project.source.camera->widthPixels = project.source.camera->heightPixels = 1;
              },
              passes},
             {"its place", [](Project& project) { project.camera->rect.x = -0.01; }, fails}});
  // Of a short recording the camera may hold less than nothing.
  Project brief = cameraProject();
  brief.source.durationMs = 1000;
  brief.clips = {clip("a", 0, 1000)};
  expectAll(brief, {{"1 ms", duration(1), passes}, {"0 ms", duration(0), fails}});
}

TEST(VideoEditProjectValidation, ChecksWhereTheCameraIs) {
  expectAll(cameraProject(), rectCases<NormalizedVideoRectDTO>(
                                 [](Project & project) -> auto& { return project.camera->rect; }, fails));
  Project along = cameraProject();
  along.camera->recordedPositions = {{{0, someRect}, {10, someRect}}};
  expectAll(
      along,
      rectCases<NormalizedVideoRectDTO>(
          [](Project & project) -> auto& { return project.camera->recordedPositions->at(1).rect; }, fails));
  Project ofVersion = cameraProject();
  ofVersion.outputVersions = {version("v1"), version("v2")};
  ofVersion.activeOutputID = "v1";
  ofVersion.outputVersions->at(1).camera = cameraLayer();
  expectAll(
      ofVersion,
      rectCases<NormalizedVideoRectDTO>(
          [](Project & project) -> auto& { return project.outputVersions->at(1).camera->rect; }, fails));
}

TEST(VideoEditProjectValidation, ChecksTheCamerasWay) {
  const auto positions = [](std::vector<std::int64_t> times) {
    return [times](Project& project) {
      project.camera->recordedPositions.emplace();
      for (const std::int64_t time : times)
        project.camera->recordedPositions->push_back({time, someRect});
    };
  };
  const auto count = [](std::int64_t size) {
    return [size](Project& project) {
      project.camera->recordedPositions.emplace();
      for (std::int64_t i = 0; i < size; ++i)
        project.camera->recordedPositions->push_back({i, someRect});
    };
  };
  expectAll(cameraProject(),
            {{"none", positions({}), fails},
             {"absent", [](Project& project) { project.camera->recordedPositions.reset(); }, passes},
             {"one at 0", positions({0}), passes},
             {"one later", positions({1}), fails},
             {"one before", positions({-1}), fails},
             {"two at once", positions({0, 5, 5}), fails},
             {"back in time", positions({0, 6, 5}), fails},
             {"a millisecond apart", positions({0, 5, 6}), passes},
             {"at the end", positions({0, 3'600'000}), passes},
             {"past the end", positions({0, 3'600'001}), fails},
             {"8192", count(8192), passes},
             {"8193", count(8193), fails}});
}

TEST(VideoEditProjectValidation, ChecksTheCamerasOfVersionsToo) {
  Project project = versionsProject();
  const auto layer = [](std::size_t of) {
    return [of](Project& changed) { changed.outputVersions->at(of).camera = cameraLayer(); };
  };
  // Without a file of the camera no version may show it.
  expectAll(project, {{"the first", layer(0), fails}, {"the second", layer(1), fails}});
  project.source.camera = cameraProject().source.camera;
  project.camera = cameraLayer();
  const auto way = [&](std::vector<VideoCameraPositionDTO> positions) {
    return [=](Project& changed) {
      layer(1)(changed);
      changed.outputVersions->at(1).camera->recordedPositions = positions;
    };
  };
  expectAll(project, {{"with a file", layer(1), passes},
                      {"an empty way", way({}), fails},
                      {"a late way", way({{1, someRect}}), fails},
                      {"a good way", way({{0, someRect}}), passes}});
}

TEST(VideoEditProjectValidation, ChecksClips) {
  const auto clips = [](std::vector<VideoEditClipDTO> list) {
    return [list](Project& project) { project.clips = list; };
  };
  const auto rate = [](double value) { return [value](Project& project) { project.clips[0].rate = value; }; };
  const auto volume = [](double value) {
    return [value](Project& project) { project.clips[0].volume = value; };
  };
  const auto muted = [](std::vector<Role> roles) {
    return [roles](Project& project) { project.clips[0].mutedRoles = roles; };
  };
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  expectAll(
      plainProject(),
      {{"none", clips({}), fails},
       {"100 ms", clips({clip("a", 0, 100)}), passes},
       {"99 ms", clips({clip("a", 0, 99)}), fails},
       {"backwards", clips({clip("a", 1000, 0)}), fails},
       {"backwards as far as can be", clips({clip("a", most, least)}), fails},
       {"forwards as far as can be", clips({clip("a", least, most)}), fails},
       {"before the beginning", clips({clip("a", -1, 1000)}), fails},
       {"to the end", clips({clip("a", 3'599'900, 3'600'000)}), passes},
       {"past the end", clips({clip("a", 3'599'900, 3'600'001)}), fails},
       {"no id", clips({clip("", 0, 1000)}), fails},
       {"a long id", clips({clip(std::string(5000, 'x'), 0, 1000)}), passes},
       {"an id twice", clips({clip("a", 0, 1000), clip("b", 1000, 2000), clip("a", 2000, 3000)}), fails},
       {"side by side", clips({clip("a", 0, 1000), clip("b", 1000, 2000)}), passes},
       {"a gap", clips({clip("a", 0, 1000), clip("b", 1500, 2000)}), passes},
       {"an overlap", clips({clip("a", 0, 1000), clip("b", 999, 2000)}), fails},
       {"out of order", clips({clip("a", 1000, 2000), clip("b", 0, 1000)}), fails},
       {"rate 0.5", rate(0.5), passes},
       {"rate 1", rate(1), passes},
       {"rate 1.5", rate(1.5), passes},
       {"rate 2", rate(2), passes},
       {"rate 3", rate(3), passes},
       {"rate 1.25", rate(1.25), fails},
       {"rate 2.5", rate(2.5), fails},
       {"rate 4", rate(4), fails},
       {"rate 0", rate(0), fails},
       {"rate -1", rate(-1), fails},
       {"rate is no number", rate(noNumber), fails},
       {"volume 0", volume(0), passes},
       {"volume 2", volume(2), passes},
       {"volume below 0", volume(-1e-12), fails},
       {"volume above 2", volume(std::nextafter(2.0, 3.0)), fails},
       {"volume is no number", volume(noNumber), fails},
       {"endless volume", volume(infinite), fails},
       {"both roles muted", muted({Role::microphone, Role::system}), passes},
       {"a role muted twice", muted({Role::system, Role::system}), fails},
       {"a role that is not there", muted({Role::mixed}), fails}});
  Project mixed = plainProject();
  mixed.source.audioTracks = {{0, Role::mixed}};
  expectAll(mixed, {{"the mixed role", muted({Role::mixed}), passes},
                    {"a role that is mixed in", muted({Role::system}), fails}});
}

TEST(VideoEditProjectValidation, RefusesAnOutputBeyondEveryClock) {
  Project project = plainProject();
  project.source.durationMs = std::numeric_limits<std::int64_t>::max();
  const auto clips = [](std::vector<VideoEditClipDTO> list) {
    return [list](Project& changed) { changed.clips = list; };
  };
  constexpr std::int64_t half = std::int64_t{1} << 61;
  expectAll(project,
            {{"slowed down", clips({clip("a", 0, std::numeric_limits<std::int64_t>::max(), 0.5)}), fails},
             {"together",
              clips({clip("a", 0, half - 1000, 0.5), clip("b", half, half + half - 1000, 0.5),
                     clip("c", half + half, 3 * half - 1000, 0.5)}),
              fails},
             {"one of them", clips({clip("a", 0, half - 1000, 0.5)}), passes}});
}

TEST(VideoEditProjectValidation, ChecksTheCropAndSaysSo) {
  expectAll(plainProject(), rectCases<NormalizedVideoCropDTO>(
                                [](Project & project) -> auto& { return project.crop; }, failsByCrop));
  expectAll(plainProject(), {{"the right half",
                              [](Project& project) {
                                project.crop = {0.5, 0, 0.5, 1};
                              },
                              passes}});
}

TEST(VideoEditProjectValidation, ChecksTheCropAfterTheClipsAndBeforeTheEffects) {
  const auto badCrop = [](Project& project) { project.crop.width = 2; };
  expectAll(plainProject(), {{"clip and crop",
                              [&](Project& project) {
                                project.clips[0].rate = 1.25;
                                badCrop(project);
                              },
                              fails},
                             {"schema and crop",
                              [&](Project& project) {
                                project.schemaVersion = 1;
                                badCrop(project);
                              },
                              fails},
                             {"crop and effect",
                              [&](Project& project) {
                                badCrop(project);
                                project.overlays = {effect<Kind::zoom>({})};
                              },
                              failsByCrop},
                             {"crop and cover",
                              [&](Project& project) {
                                badCrop(project);
                                project.coverFrameMs = -1;
                              },
                              failsByCrop},
                             {"crop and versions",
                              [&](Project& project) {
                                badCrop(project);
                                project.outputVersions.emplace();
                              },
                              failsByCrop}});
}

} // namespace
} // namespace tessarin
