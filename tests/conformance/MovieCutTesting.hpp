#pragma once

#include "MovieTesting.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// What the recorder records: numbered pictures, a key each second, and lanes of sound.
struct Recorded {
  int pictures = 60;
  int rate = 30;
  RecordingCodec codec = RecordingCodec::h264;
  std::vector<SoundSource> lanes = {};
  std::vector<std::int64_t> milliseconds = {}; // of each picture; at the rate where there are none
  std::int64_t soundFrames = -1;               // as long as the pictures where it is below zero
  bool isFinished = true;                      // else as a crash leaves it: fragments
};
std::string record(MovieRig& rig, const std::string& name, const Recorded& wanted);

// A picture that comes on show, in milliseconds of the output, and its number.
using Shown = std::pair<std::int64_t, std::int64_t>;

// What the file shows, by its index and as another program decodes it.
std::vector<Shown> shownIn(const std::string& path, std::int32_t width = paintedWidth,
                           std::int32_t height = paintedHeight);

// What cuts of a recording should show; pictures last until the next one comes. `starts` are the times in
// milliseconds at which the source's pictures come on show, exact ones.
std::vector<Shown> expectedOf(const std::vector<Cut>& all, const std::vector<double>& starts);

// The times at which pictures at an even rate come on show.
std::vector<double> evenly(int pictures, double rate);

// A cut of a source, with so many lanes of sound.
MovieExport cutOf(MovieRig& rig, const std::string& source, const std::vector<Cut>& cuts,
                  std::size_t lanes = 0);

container::Movie indexOf(const std::string& path);

// How many samples of the first video track of one file are found, byte by byte, in that of another.
std::size_t copiedPictures(const std::string& path, const std::string& source);

} // namespace tessarin
