#pragma once

#include "container/Boxes.hpp"

// What readMovie gathers while it walks through a file: the tracks with their samples, and what is needed
// to read on. Internal to the room. Failures are thrown as ContainerFailure.
namespace tessarin::container {

// Decode times stay below 2^56, so that sums of two and differences never overflow.
constexpr std::int64_t maximumDecodeTime = std::int64_t{1} << 56;

// Keeps the tables of a hostile file in proportion to the file: in all they may hold 20 million samples,
// and samples as many bytes as the file.
class SampleBudget {
 public:
  explicit SampleBudget(std::uint64_t fileSize) : bytesLeft_(fileSize) {}

  void takeSamples(std::uint64_t count) {
    if (count > samplesLeft_)
      throw ContainerFailure(ContainerError::tooLarge);
    samplesLeft_ -= count;
  }
  void takeBytes(std::uint64_t count) {
    if (count > bytesLeft_)
      failDamaged();
    bytesLeft_ -= count;
  }
  // For samples of one size that no table backs with bytes of its own.
  void takeBytes(std::uint64_t count, std::uint32_t size) {
    if (size == 0 || count > bytesLeft_ / size)
      failDamaged();
    bytesLeft_ -= count * size;
  }

 private:
  std::uint64_t samplesLeft_ = 20'000'000;
  std::uint64_t bytesLeft_;
};

// What a fragment's samples take when it does not say otherwise.
struct SampleDefaults {
  std::uint32_t description = 0; // index
  std::uint32_t duration = 0;
  std::uint32_t size = 0;
  std::uint32_t flags = 0;
};

// One stretch of media after an optional empty one; the only form of edit list that is read.
struct Edit {
  std::uint64_t emptyDuration = 0; // in units of the movie
  std::int64_t mediaTime = 0;      // in units of the track
  std::uint64_t duration = 0;      // in units of the movie; 0 means to the end of the media
};

struct TrackIndex {
  Track track;
  std::optional<Edit> edit;
  std::optional<SampleDefaults> fragmentDefaults;
  std::int64_t endTime = 0; // of the last sample
};

struct MovieIndex {
  std::int32_t timescale = 1;
  std::vector<TrackIndex> tracks;
  bool hasFragments = false; // announced
};

// The content of a `moov` box.
MovieIndex readMovieBox(std::span<const std::byte> content, SampleBudget& budget);

// The content of an `stbl` box. The track's descriptions are there.
void readSampleTable(const BoxList& table, TrackIndex& index, SampleBudget& budget);

// The content of an `stsd` box.
std::vector<SampleDescription> readDescriptions(std::span<const std::byte> content, TrackKind kind);

// Appends the samples of the content of a `moof` box at the offset in the file. Yields where the last byte
// of them ends, 0 without any. On a failure some samples may have been appended.
std::uint64_t readFragment(std::span<const std::byte> content, std::uint64_t offset, MovieIndex& index,
                           SampleBudget& budget);

// Fills in when each track is presented, and how long the movie is.
Movie placeTracks(MovieIndex index);

} // namespace tessarin::container
