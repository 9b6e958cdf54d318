#pragma once

#include "base/FileSystem.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "modules/media/PictureSequencer.hpp"
#include "ports/MediaWriting.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessarin::media {

// Units per second of video times in our files.
inline constexpr std::int32_t videoTimescale = 90000;

struct FragmentIntervals {
  std::int64_t initial = 0; // units of the video timescale
  std::int64_t further = 0;
};

// The growing file: when its fragments end. A fragment begins at a key picture of the first track, the
// first one at or after the interval since the fragment before. Confined to one thread at a time. All
// operations throw FileFailure and container::ContainerFailure.
class MovieFile {
 public:
  // Creates the file, which must not exist.
  MovieFile(FileSystem& files, std::string path, const FragmentIntervals& intervals,
            const std::vector<container::SampleDescription>& videoTracks);

  void append(std::size_t track, const CodedPicture& picture, std::int64_t time);
  // Makes durable what has been appended, so that it can be read although the file does not go on.
  void flush();
  // Ends the tracks at the times given, each after its last picture, and makes file and name durable.
  void finish(const std::vector<std::int64_t>& endTimes);

 private:
  FileSystem& files_;
  const std::string path_;
  const FragmentIntervals intervals_;
  std::unique_ptr<OpenFile> file_;
  std::optional<container::FragmentedMovieWriter> writer_;
  std::int64_t fragmentDue_;
};

} // namespace tessarin::media
