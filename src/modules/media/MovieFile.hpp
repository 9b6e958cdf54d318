#pragma once

#include "base/FileSystem.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "modules/media/AudioSequencer.hpp"
#include "modules/media/PictureSequencer.hpp"
#include "ports/MediaWriting.hpp"

#include <cstdint>
#include <deque>
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

// A track of the file and what its decoder needs to know.
struct MovieTrack {
  container::TrackSetup setup;
  container::SampleDescription description;
};

MovieTrack videoTrack(const container::SampleDescription& description);
MovieTrack audioTrack(const container::SampleDescription& description, std::int32_t sampleRate);

// The growing file: when its fragments end. A fragment begins at a key picture of the first video track, the
// first one at or after the interval since the fragment before. Sound is coded ahead of the pictures, and is
// held back until they are there, so that the file never has more of it: what a crash or a failure leaves
// ends with its pictures, and so does the finished file. Confined to one thread at a time. All operations
// throw FileFailure and container::ContainerFailure.
class MovieFile {
 public:
  // Creates the file, which must not exist. At least one track is of video.
  MovieFile(FileSystem& files, std::string path, const FragmentIntervals& intervals,
            const std::vector<MovieTrack>& tracks);

  void append(std::size_t track, const CodedPicture& picture, std::int64_t time);
  void append(std::size_t track, CodedSound sound);
  // Makes durable what has been appended, so that it can be read although the file does not go on.
  void flush();
  // Ends the tracks at the times given, in units of the track from the beginning of the file: a video track
  // after its last picture, and sound where it is told to. Makes file and name durable.
  void finish(const std::vector<std::int64_t>& endTimes);

 private:
  // A sound track's packets that wait for the pictures.
  struct HeldSound {
    std::size_t track = 0;
    container::TrackSetup setup;
    std::deque<CodedSound> held;
    std::size_t released = 0; // packets of the first one held
    std::size_t releasedBytes = 0;
  };
  void release(HeldSound& sound, std::int64_t frame);

  FileSystem& files_;
  const std::string path_;
  const FragmentIntervals intervals_;
  std::unique_ptr<OpenFile> file_;
  std::optional<container::FragmentedMovieWriter> writer_;
  std::int64_t fragmentDue_;
  std::size_t leadingTrack_; // the first of video
  std::vector<HeldSound> sounds_;
};

} // namespace tessarin::media
