#pragma once

#include "container/BoxWriter.hpp"

// One fragment as it is gathered: the samples of every track in chunks of about a second, one behind
// another, and room at the front for the `moof` box, so that the fragment is one piece of memory in the
// end. Internal to the room; confined to one thread.
namespace tessarin::container {

struct FragmentSample {
  std::uint32_t size = 0;
  std::uint32_t duration = 0;
  std::int32_t compositionOffset = 0;
  bool isSync = false;
};

// Samples of one track whose data lies in one piece.
struct FragmentChunk {
  std::size_t track = 0;
  std::int64_t decodeTime = 0;  // of the first sample
  std::uint64_t dataOffset = 0; // behind the header of the fragment's `mdat`
  std::vector<FragmentSample> samples;
};

class Fragment {
 public:
  bool isEmpty() const { return chunks_.empty(); }
  std::uint64_t dataSize() const { return body_.size() - headroom_; }
  const std::vector<FragmentChunk>& chunks() const { return chunks_; }

  // Takes the samples over; the chunk's offset is filled in. A chunk without samples is left out.
  void add(FragmentChunk chunk, std::span<const std::byte> data);

  struct Bytes {
    std::span<const std::byte> whole; // `moof` and `mdat`, until the next call
    std::uint64_t dataStart = 0;      // of the media within it
  };
  Bytes assemble(std::uint32_t sequenceNumber);
  void clear();

 private:
  std::size_t headroom_ = 0;
  std::vector<std::byte> body_; // headroom, then media
  std::vector<FragmentChunk> chunks_;
};

} // namespace tessarin::container
