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
// first one at or after the interval since the fragment before. Coders are at different times: what sound and
// the other video tracks have ahead of the first one's pictures is held back until those are there, so that
// what a crash or a failure leaves ends with them. A fragment waits for another video track that is behind,
// for some key pictures at most. Confined to one thread at a time. All operations throw
// FileFailure and container::ContainerFailure.
class MovieFile {
 public:
  // Creates the file, which must not exist. At least one track is of video.
  MovieFile(FileSystem& files, std::string path, const FragmentIntervals& intervals,
            const std::vector<MovieTrack>& tracks);

  void append(std::size_t track, CodedPicture picture, std::int64_t time);
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
  // The same of a video track but the first.
  struct HeldPictures {
    struct Held {
      CodedPicture picture;
      std::int64_t time = 0;
    };
    std::size_t track = 0;
    std::deque<Held> held;
    std::int64_t newestTime = -1; // of its pictures so far
  };
  void release(HeldSound& sound, std::int64_t frame);
  void release(HeldPictures& pictures, std::int64_t time);
  void releaseAll(std::int64_t time);
  bool isWaitingForOthers(std::int64_t time) const;

  FileSystem& files_;
  const std::string path_;
  const FragmentIntervals intervals_;
  std::unique_ptr<OpenFile> file_;
  std::optional<container::FragmentedMovieWriter> writer_;
  std::int64_t fragmentDue_;
  std::size_t leadingTrack_;     // the first of video
  std::int64_t leadingTime_ = 0; // of its last picture
  std::vector<HeldSound> sounds_;
  std::vector<HeldPictures> otherPictures_;
};

} // namespace tessarin::media
