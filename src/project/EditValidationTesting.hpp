#pragma once

#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"
#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Tables of changes to a project that passes its check, and what the check then says, for tests.
namespace tessarin::editTesting {

using Outcome = std::optional<VideoEditExportError>;
using Project = VideoEditProjectDTO;
using Role = VideoEditAudioRole;

inline constexpr Outcome passes = std::nullopt;
inline constexpr Outcome fails = VideoEditExportError::invalidProject;
inline constexpr Outcome failsByCrop = VideoEditExportError::invalidCrop;
inline constexpr double infinite = std::numeric_limits<double>::infinity();
inline constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();

inline Outcome outcomeOf(const Project& project) {
  try {
    project.validate(sessionID, sourcePath);
    return passes;
  } catch (const Failure<VideoEditExportError>& failure) {
    return failure.value();
  }
}

struct Case {
  const char* name;
  std::function<void(Project&)> change;
  Outcome outcome;
};

inline void expectAll(const Project& project, const std::vector<Case>& cases) {
  for (const Case& each : cases) {
    Project changed = project;
    each.change(changed);
    EXPECT_EQ(outcomeOf(changed), each.outcome) << each.name;
  }
}

// The bounds that every place has, tried on one that `rect` finds; crops are no different.
template<class Rect>
std::vector<Case> rectCases(const std::function<Rect&(Project&)>& rect, const Outcome& failing) {
  const auto to = [&rect](double x, double y, double width, double height) {
    return [=](Project& project) { rect(project) = {x, y, width, height}; };
  };
  const double pastOne = std::nextafter(1.0000000000000002, 2.0);
  return {{"all of it", to(0, 0, 1, 1), passes},
          {"the smallest", to(0.5, 0.5, 0.02, 0.02), passes},
          {"too narrow", to(0, 0, std::nextafter(0.02, 0), 1), failing},
          {"too low", to(0, 0, 1, std::nextafter(0.02, 0)), failing},
          {"left of it", to(-1e-12, 0, 0.5, 0.5), failing},
          {"above it", to(0, -1e-12, 0.5, 0.5), failing},
          {"to the right edge", to(0.5, 0, 0.5, 1), passes},
          {"to the bottom edge", to(0, 0.5, 1, 0.5), passes},
          {"a rounding past the right edge", to(0, 0, 1.0000000000000002, 1), passes},
          {"a rounding past the bottom edge", to(0, 0, 1, 1.0000000000000002), passes},
          {"past the right edge", to(0, 0, pastOne, 1), failing},
          {"past the bottom edge", to(0, 0, 1, pastOne), failing},
          {"past the right edge together", to(0.6, 0, 0.5, 1), failing},
          {"past the bottom edge together", to(0, 0.6, 1, 0.5), failing},
          {"x is no number", to(noNumber, 0, 1, 1), failing},
          {"y is no number", to(0, noNumber, 1, 1), failing},
          {"width is no number", to(0, 0, noNumber, 1), failing},
          {"height is no number", to(0, 0, 1, noNumber), failing},
          {"endlessly wide", to(0, 0, infinite, 1), failing},
          {"endlessly far", to(-infinite, 0, infinite, 1), failing}};
}

// Texts, and whether they are colours.
inline const std::vector<std::pair<std::string, bool>> colors = {
    {"#000000", true},      {"#ffffff", true},   {"#FFffFF", true},
    {"#01234567", true},    {"#89abCDEF", true}, {"", false},
    {"#", false},           {"#fff", false},     {"#ffff", false},
    {"#fffff", false},      {"#fffffff", false}, {"#fffffffff", false},
    {"ffffff", false},      {"fffffff", false},  {" #ffffff", false},
    {"#ffffff ", false},    {"#fffffg", false},  {"#-00000", false},
    {"#0x0000", false},     {"##00000", false},  {"#\uff10\uff11", false},
    {"#00000\u00e9", false}};

// The same, each set in a project.
inline std::vector<Case>
colorCases(const std::function<std::function<void(Project&)>(const std::string&)>& set) {
  std::vector<Case> cases;
  cases.reserve(colors.size());
  for (const auto& [color, holds] : colors)
    cases.push_back({color.c_str(), set(color), holds ? passes : fails});
  return cases;
}

} // namespace tessarin::editTesting
