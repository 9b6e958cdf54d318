#pragma once

#include "container/BoxWriter.hpp"

// The boxes that every file of this program begins and ends with. Internal to the room. Any thread.
namespace tessarin::container {

// The sample tables of one track as they grow, kept in the form of the file: runs where samples are alike.
class SampleTable {
 public:
  // The next samples lie one after another from the offset in the file on.
  void beginChunk(std::uint64_t offset, std::uint32_t description);
  void add(std::uint32_t size, std::uint32_t duration, std::int32_t compositionOffset, bool isSync);

  // All samples lie so many bytes further behind.
  void moveChunks(std::uint64_t by);

  std::uint64_t duration() const { return duration_; }
  // When what is presented last ends, counted from the first decode time.
  std::int64_t presentationEnd() const { return presentationEnd_; }
  std::size_t sampleCount() const { return sizes_.size(); }
  // The boxes inside `stbl` but its `stsd`.
  void write(BoxWriter& writer) const;

 private:
  struct Run {
    std::uint32_t count = 0;
    std::uint32_t value = 0;
  };
  struct Chunk {
    std::uint64_t offset = 0;
    std::uint32_t sampleCount = 0;
    std::uint32_t description = 0; // index
  };
  static void addToRuns(std::vector<Run>& runs, std::uint32_t value);
  static void writeRuns(BoxWriter& writer, FourCC type, std::uint8_t version, const std::vector<Run>& runs);
  void writeChunks(BoxWriter& writer) const;

  std::vector<std::uint32_t> sizes_;
  std::vector<Run> durations_;
  std::vector<Run> compositionOffsets_;
  std::vector<std::uint32_t> syncSamples_; // counted from 1
  std::vector<Chunk> chunks_;
  std::uint64_t duration_ = 0;
  std::int64_t presentationEnd_ = 0;
};

// A track as `moov` tells it. What is pointed to is only read.
struct TrackToWrite {
  TrackKind kind = TrackKind::video;
  std::int32_t timescale = 1;
  std::int32_t width = 0; // pixels, video
  std::int32_t height = 0;
  std::array<std::int32_t, 9> matrix = Track{}.matrix;
  std::vector<const SampleDescription*> descriptions;
  const SampleTable* samples = nullptr;
  // On the movie's time line in units of the track: the pause before the track, the media time presented
  // first, and how long from there. A fragmented file leaves the length open.
  std::int64_t start = 0;
  std::int64_t presentationStart = 0;
  std::int64_t presentationDuration = 0;
};

// The `ftyp` box of a file of the brand.
void writeFileType(BoxWriter& writer, const std::string& brand);

// The header of an `mdat` box over so many bytes of content, always in the 16 bytes of the wide form.
void writeWideMediaHeader(BoxWriter& writer, std::uint64_t contentSize);

enum class MovieForm : std::uint8_t { ordinary, fragmented };

// The `moov` box. Track ids count from 1 in the order given. The movie's timescale is the least common one
// of the tracks where that fits, so durations stay exact.
void writeMovieBox(BoxWriter& writer, MovieForm form, const std::vector<TrackToWrite>& tracks);

// The least common multiple when it is at most the limit, else nothing.
std::optional<std::int32_t> commonTimescale(std::int32_t a, std::int32_t b, std::int32_t limit);

} // namespace tessarin::container
