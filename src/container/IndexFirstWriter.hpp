#pragma once

#include "container/MovieBoxWriter.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tessarin::container {

// A track of the file to be.
struct IndexedTrack {
  TrackKind kind = TrackKind::video;
  std::int32_t timescale = 90000;
  std::int32_t width = 0; // pixels, video
  std::int32_t height = 0;
  std::array<std::int32_t, 9> matrix = Track{}.matrix;
  std::vector<SampleDescription> descriptions; // whole sample entry boxes; at least one
  // On the movie's time line in units of the track: the pause before the track, and the media time presented
  // first.
  std::int64_t start = 0;
  std::int64_t presentationStart = 0;
};

// Writes an ordinary MPEG-4 file whose index lies ahead of its media, so that it can be played while it is
// still being fetched: `ftyp`, `moov`, `free`, one `mdat`. Room for the index is left when the writing
// begins, so that nothing need be written twice; when the index needs more, the media are moved within the
// file.
//
// Until finish() returns the file is no movie. Confined to one thread. Throws FileFailure from the file, and
// ContainerFailure for what the form cannot tell. Memory: a megabyte, and about 12 bytes for each sample.
class IndexFirstWriter {
 public:
  // The file is empty and outlives the writer. The index is expected to take no more than `indexBytes`.
  IndexFirstWriter(OpenFile& file, std::vector<IndexedTrack> tracks, std::uint64_t indexBytes,
                   const std::string& brand = "mp42");

  // Samples of a track come in the order of decoding, and those of all tracks in the order in which they are
  // to lie in the file. The duration is that of decoding, in units of the track.
  void append(std::size_t track, std::span<const std::byte> data, std::uint32_t duration,
              std::int32_t compositionOffset, bool isSync, std::uint32_t description = 0);

  // Ends every track after so much of it is presented, in units of the track, writes the index, and makes the
  // file durable.
  void finish(std::span<const std::int64_t> presentationDurations);

 private:
  struct Growing {
    IndexedTrack setup;
    SampleTable table;
    std::uint32_t description = 0;   // of the chunk under way
    std::uint64_t chunkDuration = 0; // of the chunk under way
  };

  BoxWriter index(std::span<const std::int64_t> presentationDurations) const;
  void flush();
  void moveMedia(std::uint64_t by);

  OpenFile& file_;
  std::vector<Growing> tracks_;
  BoxWriter head_;                 // `ftyp`
  std::uint64_t mediaStart_ = 0;   // of the content of `mdat`
  std::uint64_t end_ = 0;          // of what has been appended
  std::vector<std::byte> pending_; // the last bytes of it, not yet written
  std::size_t lastTrack_ = 0;
};

} // namespace tessarin::container
