#pragma once

#include "container/Movie.hpp"

#include <memory>
#include <span>

namespace tessarin::container {

// A track of the file to be written. The description box may be given late, with setDescription, but before
// the first fragment is flushed.
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
// until the next one or the end is known. Confined to one thread. Failures are thrown as FileFailure.
class FragmentedMovieWriter {
 public:
  // The file is empty and outlives the writer.
  FragmentedMovieWriter(OpenFile& file, std::vector<TrackSetup> tracks);
  ~FragmentedMovieWriter();

  // The whole sample entry box ("avc1" with its "avcC", ...) of the track at the index.
  void setDescription(std::size_t track, SampleDescription description);

  // Times in units of the track's timescale; decode times strictly increase.
  void append(std::size_t track, std::span<const std::byte> data, std::int64_t decodeTime,
              std::int32_t compositionOffset, bool isSync);

  // Issues everything that is not held back as one fragment and makes it durable; nothing to do without samples.
  void flushFragment();

  // Ends every track at the time given in units of its timescale (later than its last sample), and makes
  // the file an ordinary, durable one.
  void finish(std::span<const std::int64_t> endTimes);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

} // namespace tessarin::container
