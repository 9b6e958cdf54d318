#pragma once

#include "base/FileSystem.hpp"
#include "base/MediaTime.hpp"

#include <array>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

// The index of an MPEG-4 file (ISO/IEC 14496-12): what its tracks hold and where, without decoding. The
// program reads, cuts and joins movies by this index alone, its own and those of others, which may be
// hostile.
namespace tessarin::container {

enum class ContainerError : std::uint8_t {
  notAMovie,   // no usable index
  unsupported, // an index of a form that this program does not write
  damaged,     // contradicts itself or points outside the file
  tooLarge     // beyond the bounds of the reader
};

class ContainerFailure : public std::exception {
 public:
  explicit ContainerFailure(ContainerError error) : error_(error) {}
  ContainerError error() const noexcept { return error_; }
  const char* what() const noexcept override { return "the media file could not be read"; }

 private:
  ContainerError error_;
};

enum class TrackKind : std::uint8_t { video, audio, other };

// One coded sample. Times are in units of its track's timescale, before the track's edit; a fragmented file
// may begin later than 0.
struct Sample {
  std::uint64_t offset = 0; // in the file
  std::uint32_t size = 0;
  std::uint32_t duration = 0;
  std::int64_t decodeTime = 0;
  std::int32_t compositionOffset = 0;
  bool isSync = false;
  std::uint16_t description = 0; // index into the track's descriptions

  bool operator==(const Sample&) const = default;
};

// One sample description with its whole box, so that it can be written again unchanged.
struct SampleDescription {
  std::string codec;      // four-character code, "avc1"
  std::int32_t width = 0; // pixels, video
  std::int32_t height = 0;
  double sampleRate = 0; // Hz, audio
  std::int32_t channelCount = 0;
  std::vector<std::byte> box;

  bool operator==(const SampleDescription&) const = default;
};

struct Track {
  std::uint32_t id = 0;
  TrackKind kind = TrackKind::other;
  std::int32_t timescale = 1;
  std::vector<SampleDescription> descriptions; // at least one
  std::vector<Sample> samples;                 // in decoding order
  // The media time that is presented first (AAC priming lies before it), and how long from there; in units
  // of the timescale. From the first decode time to the end of what is presented last when the file has no
  // edit. Exact: an edit that ends within one unit of the file's coarser time line of that end, ends there.
  std::int64_t presentationStart = 0;
  std::int64_t presentationDuration = 0;
  // Row-major 16.16 (and 2.30) display matrix as stored; identity for recordings of this program.
  std::array<std::int32_t, 9> matrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

  // Where the track lies on the movie's time line. An empty edit ahead of the media shifts the start. Always
  // numeric; the duration is 0 for a track without samples.
  MediaTime start;
  MediaTime duration;
};

struct Movie {
  MediaTime duration;        // the latest end of a track; numeric
  std::vector<Track> tracks; // in file order
  bool isFragmented = false; // the index was gathered from fragments
  // Up to where the file is whole: its size, or the end of the last whole fragment of a torn file, or of the
  // last box of a finished one behind which something else stands.
  std::uint64_t usableBytes = 0;

  std::vector<const Track*> tracksOf(TrackKind kind) const;
};

// Reads the index of a finished file, or of a fragmented one up to its last whole fragment, without reading
// media. Every sample lies inside `usableBytes`, and decode times never go back. The tables of one movie may
// hold up to 20 million samples and take up to 1 GiB. Throws ContainerFailure and FileFailure. Any thread.
Movie readMovie(const OpenFile& file);

} // namespace tessarin::container
