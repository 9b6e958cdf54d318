#pragma once

#include "recording/RecordingMerger.hpp"
#include "support/FailureOf.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/ScriptedReencoder.hpp"
#include "support/SyntheticMovie.hpp"
#include "support/TemporaryDirectory.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tessarin {

// A merger over segments and an output directory of its own.
class RecordingMergerTest : public ::testing::Test {
 protected:
  using Paths = std::vector<std::string>;
  using Error = RecordingMergeError;

  RecordingMergerTest() {
    std::filesystem::create_directory(directory / "segments");
    std::filesystem::create_directory(directory / "out");
  }

  // What a merge fails with, or nothing.
  static std::optional<Error> errorOf(const std::function<void()>& merge) { return failureOf<Error>(merge); }

  // The path of a new segment with these tracks.
  std::string segment(const std::vector<testing::SyntheticTrack>& tracks, bool isFinished = true) {
    const std::string path = directory / ("segments/segment-" + std::to_string(count++) + ".mp4");
    testing::writeSyntheticMovie(path, tracks, isFinished);
    return path;
  }

  std::string out(const std::string& name) const { return directory / ("out/" + name); }
  std::string bytesOf(const std::string& path) const {
    return directory.read(std::filesystem::relative(path, directory.path()).string());
  }
  // Everything in the output directory, hidden names too.
  Paths outputs() const {
    Paths names;
    for (const auto& entry : std::filesystem::directory_iterator(directory / "out"))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  bool wasMadeByCloning() const {
    return files.count(FileOperation::clone) == 1 && files.count(FileOperation::write) == 0;
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ScriptedReencoder reencoder;
  RecordingMerger merger{files, reencoder};
  int count = 0;
};

// One list behind the other.
inline std::vector<std::string> joined(std::vector<std::string> first,
                                       const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

} // namespace tessarin
