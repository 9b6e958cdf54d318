#include "project/VideoEditProject.hpp"

#include "project/EditValidationTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tessarin {
namespace {

using namespace editTesting;

std::function<void(Project&)> inVersion(std::function<void(VideoOutputVersionDTO&)> change) {
  return [change](Project& project) { change(project.outputVersions->at(1)); };
}

std::function<void(Project&)> inCanvas(std::function<void(VideoCanvasConfigDTO&)> change) {
  return inVersion([change](VideoOutputVersionDTO& version) { change(version.canvas); });
}

TEST(VideoOutputValidation, NeedsVersionsAndAnActiveOneOrNeither) {
  const auto versions = [](std::size_t count, std::optional<std::string> active) {
    return [count, active](Project& project) {
      project.outputVersions.emplace();
      for (std::size_t i = 1; i <= count; ++i)
        project.outputVersions->push_back(version("v" + std::to_string(i)));
      project.activeOutputID = active;
    };
  };
  expectAll(
      plainProject(),
      {{"neither", [](Project&) {}, passes},
       {"only an active one", [](Project& project) { project.activeOutputID = "v1"; }, fails},
       {"only an active one without a name", [](Project& project) { project.activeOutputID = ""; }, fails},
       {"no versions", versions(0, std::nullopt), fails},
       {"no versions but an active one", versions(0, "v1"), fails},
       {"none active", versions(1, std::nullopt), fails},
       {"one", versions(1, "v1"), passes},
       {"the last of eight active", versions(8, "v8"), passes},
       {"nine", versions(9, "v1"), fails},
       {"another active", versions(2, "v3"), fails}});
}

TEST(VideoOutputValidation, ChecksNames) {
  const auto id = [](const std::string& to) { return inVersion([to](auto& one) { one.id = to; }); };
  const auto name = [](const std::string& to) { return inVersion([to](auto& one) { one.name = to; }); };
  std::string accented;
  for (int i = 0; i < 60; ++i)
    accented += "e\u0301";
  const std::string flag = "\U0001f1e9\U0001f1ea";
  std::string flags;
  for (int i = 0; i < 128; ++i)
    flags += flag;
  expectAll(versionsProject(), {{"no id", id(""), fails},
                                {"an id twice", id("v1"), fails},
                                {"an id of 128 letters", id(std::string(128, 'x')), passes},
                                {"an id of 129 letters", id(std::string(129, 'x')), fails},
                                {"an id of 128 flags", id(flags), passes},
                                {"an id of 129 flags", id(flags + flag), fails},
                                {"no name", name(""), fails},
                                {"a blank name", name(" \t\r\n\u3000\u00a0\u2028 "), fails},
                                {"a letter among blanks", name("  x "), passes},
                                {"a name of 60 letters", name(std::string(60, 'x')), passes},
                                {"a name of 61 letters", name(std::string(61, 'x')), fails},
                                {"a name of 60 letters with accents", name(accented), passes},
                                {"a name of 61 letters with accents", name(accented + "x"), fails},
                                {"a name with 61 blanks", name("x" + std::string(60, ' ')), fails},
                                {"a name twice", name("Original"), passes}});
}

TEST(VideoOutputValidation, ChecksPlacesAndCaptions) {
  Project styled = versionsProject();
  styled.outputVersions->at(1).captionStyle = {{someRect, 0.05}};
  styled.outputVersions->at(1).canvas.contentFrame = someRect;
  expectAll(styled,
            rectCases<NormalizedVideoRectDTO>(
                [](Project & project) -> auto& { return project.outputVersions->at(1).captionStyle->rect; },
                fails));
  expectAll(styled,
            rectCases<NormalizedVideoRectDTO>(
                [](Project & project) -> auto& { return *project.outputVersions->at(1).canvas.contentFrame; },
                fails));
  const auto scale = [](double to) {
    return inVersion([to](auto& one) { one.captionStyle->fontScale = to; });
  };
  expectAll(styled, {{"scale 0.02", scale(0.02), passes},
                     {"scale below 0.02", scale(std::nextafter(0.02, 0)), fails},
                     {"scale 0.2", scale(0.2), passes},
                     {"scale above 0.2", scale(std::nextafter(0.2, 1)), fails},
                     {"scale is no number", scale(noNumber), fails}});
}

TEST(VideoOutputValidation, ChecksSizes) {
  Project custom = versionsProject();
  custom.outputVersions->at(1).canvas.preset = VideoCanvasPresetDTO::custom;
  const auto size = [](std::int64_t width, std::int64_t height) {
    return inCanvas([=](auto& canvas) {
      canvas.widthPixels = width;
      canvas.heightPixels = height;
    });
  };
  expectAll(custom, {{"the smallest", size(2, 2), passes},
                     {"no width", size(0, 2), fails},
                     {"no height", size(2, 0), fails},
                     {"less than none", size(-2, 2), fails},
                     {"1 wide", size(1, 2), fails},
                     {"odd width", size(1921, 1080), fails},
                     {"odd height", size(1920, 1081), fails},
                     {"the largest", size(7680, 7680), passes},
                     {"too wide", size(7682, 1080), fails},
                     {"too high", size(1920, 7682), fails}});
}

TEST(VideoOutputValidation, HoldsTheOriginalPresetToTheCroppedPicture) {
  Project project = versionsProject();
  project.crop = {0, 0, 0.5, 0.333}; // 960 x 359.64
  for (VideoOutputVersionDTO& each : *project.outputVersions) {
    each.canvas.widthPixels = 960;
    each.canvas.heightPixels = 358;
  }
  expectAll(project,
            {{"its size", [](Project&) {}, passes},
             {"another width", inCanvas([](auto& canvas) { canvas.widthPixels = 958; }), fails},
             {"another height", inCanvas([](auto& canvas) { canvas.heightPixels = 360; }), fails},
             {"another preset", inCanvas([](auto& canvas) {
                canvas.heightPixels = 360;
                canvas.preset = VideoCanvasPresetDTO::square;
              }),
              passes},
             {"another preset of its size",
              inCanvas([](auto& canvas) { canvas.preset = VideoCanvasPresetDTO::landscape16x9; }), passes}});
}

TEST(VideoOutputValidation, ChecksTheNumbersOfTheCanvas) {
  struct Bound {
    const char* name;
    double VideoCanvasConfigDTO::*field;
    double lowest;
    double highest;
  };
  using Canvas = VideoCanvasConfigDTO;
  const Bound bounds[] = {{"manualScale", &Canvas::manualScale, 0.25, 4.0},
                          {"offsetX", &Canvas::offsetX, -1.0, 1.0},
                          {"offsetY", &Canvas::offsetY, -1.0, 1.0},
                          {"padding", &Canvas::padding, 0, 0.4},
                          {"cornerRadius", &Canvas::cornerRadius, 0, 0.2}};
  for (const Bound& bound : bounds) {
    const auto to = [&](double value) {
      return inCanvas([&bound, value](auto& canvas) { canvas.*bound.field = value; });
    };
    SCOPED_TRACE(bound.name);
    expectAll(versionsProject(), {{"lowest", to(bound.lowest), passes},
                                  {"below", to(std::nextafter(bound.lowest, -9)), fails},
                                  {"highest", to(bound.highest), passes},
                                  {"above", to(std::nextafter(bound.highest, 9)), fails},
                                  {"no number", to(noNumber), fails},
                                  {"endless", to(infinite), fails}});
  }
}

TEST(VideoOutputValidation, ChecksTheBackground) {
  const auto angle = [](double to) {
    return inCanvas([to](auto& canvas) { canvas.background.angleDegrees = to; });
  };
  expectAll(versionsProject(), {{"0 degrees", angle(0), passes},
                                {"360 degrees", angle(360), passes},
                                {"below 0", angle(-1e-9), fails},
                                {"above 360", angle(std::nextafter(360.0, 361.0)), fails},
                                {"no number", angle(noNumber), fails}});
  for (auto field : {&VideoCanvasBackgroundDTO::color, &VideoCanvasBackgroundDTO::secondaryColor}) {
    const auto color = [field](const std::string& to) {
      return inCanvas([field, to](auto& canvas) { canvas.background.*field = to; });
    };
    expectAll(versionsProject(), colorCases(color));
  }
}

TEST(VideoOutputValidation, ChecksEveryVersion) {
  for (const std::size_t i : {std::size_t{0}, std::size_t{1}}) {
    Project project = versionsProject();
    project.outputVersions->at(i).canvas.padding = 0.5;
    EXPECT_EQ(outcomeOf(project), fails);
  }
}

} // namespace
} // namespace tessarin
