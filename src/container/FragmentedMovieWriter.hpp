#pragma once

#include "container/Movie.hpp"

#include <memory>
#include <span>

namespace tessarin::container {

// A track of the file to be written. Its sample description may be given late, with setDescription, but
// before the first fragment is flushed.
struct TrackSetup {
  TrackKind kind = TrackKind::video;
  std::int32_t timescale = 90000;
  std::int32_t width = 0; // pixels, video
  std::int32_t height = 0;
  // Media before this time is not presented (AAC priming), in units of the timescale.
  std::int64_t presentationStart = 0;
};

// Grows a fragmented MPEG-4 file that can be read to its last fragment at any moment, and ends it as an
// ordinary one, in place: `ftyp`, 16 bytes of `free`, the `moov` of the fragmented form, then a `moof` and
// `mdat` for each fragment, each issued as one write. finish() appends an ordinary `moov` and turns the
// 16 bytes of `free` into the header of one `mdat` over all that lies between, so nothing is copied.
//
// A sample's duration is the distance to its track's next sample, so one sample of each track is held back
// until the next one or the end is known. After a crash at any point between two of its writes or syncs the
// file reads up to its last whole fragment; a write that fails is taken back, so that it ends with one.
//
// Confined to one thread. Throws FileFailure from the file, after which every further call throws the same
// failure; ContainerFailure for media that cannot be told in this form, named at each operation, with
// nothing changed. Memory: one fragment and about 4 bytes for each sample written.
class FragmentedMovieWriter {
 public:
  // The file is empty and outlives the writer. Writes nothing yet. At least one track, video or audio. The
  // brand is four characters.
  FragmentedMovieWriter(OpenFile& file, const std::vector<TrackSetup>& tracks, std::string brand = "isom");
  // Leaves the file as it is; what was not flushed is not in it.
  ~FragmentedMovieWriter();
  FragmentedMovieWriter(const FragmentedMovieWriter&) = delete;
  FragmentedMovieWriter& operator=(const FragmentedMovieWriter&) = delete;

  // The whole sample entry box ("avc1" with its "avcC", "colr" and "pasp", ...) of the track at the index.
  // Unsupported once the first fragment was flushed, or without a box.
  void setDescription(std::size_t track, SampleDescription description);

  // Copies the data. Times in units of the track's timescale; decode times strictly increase from 0 or
  // later, else the call is refused as damaged. Once more than 128 MiB have gathered since the last fragment
  // they are flushed as one at once; a single sample larger than that is tooLarge, as is a sample that lasts
  // 2^32 units or more.
  void append(std::size_t track, std::span<const std::byte> data, std::int64_t decodeTime,
              std::int32_t compositionOffset, bool isSync);

  // Issues everything that is not held back as one fragment and makes it durable: one write and one sync, and
  // the first time one write more for the head of the file. Called right after a key frame was appended, it
  // ends the fragment just before that key frame, which begins the next one. Waits for the disk. Nothing to
  // do without samples. Unsupported while a description is missing.
  void flushFragment();

  // Ends every track at the time given in units of its timescale, and makes the file an ordinary, durable
  // one. A last sample lasts at least one unit, whatever the end. A track without samples stays, empty. The
  // writer takes nothing more after it.
  void finish(std::span<const std::int64_t> endTimes);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

} // namespace tessarin::container
