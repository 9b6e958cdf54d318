#include "backends/png/ZlibStream.hpp"

#include <libdeflate.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace tessarin::png {

namespace {

static_assert(std::endian::native == std::endian::little, "bytes are compared as little-endian words");

constexpr std::size_t window = 32768;
constexpr std::size_t blockSize = 1 << 18; // or up to a piece more

// A shorter repetition costs about what its bytes cost by themselves.
constexpr unsigned shortestMatch = 6;

// So far from the end of what is there, words can be read without a look at it.
constexpr std::size_t tail = 16;

// One byte more a step after each so many places without a repetition, up to the longest step.
constexpr std::size_t missesForLongerStep = 32;
constexpr std::size_t longestStep = 64;

// Deflate with its largest window, made fast.
constexpr std::array<std::uint8_t, 2> header = {0x78, 0x01};
constexpr std::size_t checksumSize = 4;

std::uint64_t wordAt(const std::uint8_t* position) {
  std::uint64_t word = 0;
  std::memcpy(&word, position, sizeof word);
  return word;
}

// The bytes that make a repetition, at the top of a word.
std::uint64_t keyOf(std::uint64_t word) {
  return word << (64 - 8 * shortestMatch);
}

template<unsigned bits> std::size_t slotOf(std::uint64_t word) {
  return static_cast<std::size_t>((keyOf(word) * 0x9E3779B185EBCA87) >> (64 - bits));
}

} // namespace

std::size_t ZlibStream::bound(std::size_t byteCount) {
  return header.size() + blockBound(byteCount) + (byteCount / blockSize + 1) * blockBound(0) + checksumSize;
}

ZlibStream::ZlibStream(std::size_t largestPiece, std::uint8_t* out)
    : buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(window + blockSize + largestPiece)), out_(out) {
  out_.copy(header);
}

void ZlibStream::append(std::size_t byteCount) {
  checksum_ = libdeflate_adler32(checksum_, piece(), byteCount);
  filled_ += byteCount;
  if (filled_ - taken_ >= blockSize) {
    codeBlock(false);
    slide();
  }
}

std::uint8_t* ZlibStream::finish() {
  codeBlock(true);
  out_.align();
  for (const unsigned shift : {24U, 16U, 8U, 0U})
    out_.add(checksum_ >> shift & 0xFF, 8);
  out_.flush();
  return out_.position();
}

// A block of all that is there; unless it is the last one, without the few bytes at the end in which no
// repetition is looked for.
void ZlibStream::codeBlock(bool isLast) {
  const std::size_t start = taken_;
  const std::size_t end = filled_ > tail ? filled_ - tail : 0;
  std::size_t position = start;
  std::size_t misses = 0;
  while (position < end) {
    const std::uint64_t word = wordAt(buffer_.get() + position);
    std::uint32_t& seen = seen_[slotOf<hashBits>(word)];
    const std::size_t candidate = seen;
    seen = static_cast<std::uint32_t>(position);
    if (candidate < position && position - candidate <= window &&
        keyOf(wordAt(buffer_.get() + candidate)) == keyOf(word)) {
      position = takeMatch(position, candidate);
      misses = 0;
    } else {
      position += std::min(1 + misses++ / missesForLongerStep, longestStep);
    }
  }
  const std::size_t blockEnd = isLast ? filled_ : std::min(position, filled_);
  if (blockEnd > taken_)
    sequences_.push_back({static_cast<std::uint32_t>(blockEnd - taken_), 0, 0});
  writeBlock(out_, {buffer_.get() + start, blockEnd - start}, sequences_, isLast);
  sequences_.clear();
  taken_ = blockEnd;
}

// Extends a repetition to both sides; yields the position behind it.
std::size_t ZlibStream::takeMatch(std::size_t position, std::size_t candidate) {
  const std::uint8_t* const bytes = buffer_.get();
  std::size_t length = shortestMatch;
  while (position + length + sizeof(std::uint64_t) <= filled_) {
    const std::uint64_t difference = wordAt(bytes + position + length) ^ wordAt(bytes + candidate + length);
    if (difference != 0) {
      length += static_cast<std::size_t>(std::countr_zero(difference)) / 8;
      break;
    }
    length += sizeof difference;
  }
  const std::size_t end = position + length;
  while (position > taken_ && candidate > 0 && bytes[position - 1] == bytes[candidate - 1]) {
    --position;
    --candidate;
  }
  sequences_.push_back({static_cast<std::uint32_t>(position - taken_),
                        static_cast<std::uint32_t>(end - position),
                        static_cast<std::uint32_t>(position - candidate)});
  taken_ = end;
  const std::size_t last = std::min(end - 2, filled_ - sizeof(std::uint64_t));
  seen_[slotOf<hashBits>(wordAt(bytes + last))] = static_cast<std::uint32_t>(last);
  return end;
}

// Drops what repetitions can no longer refer to.
void ZlibStream::slide() {
  const std::size_t dropped = taken_ - std::min(taken_, window);
  std::memmove(buffer_.get(), buffer_.get() + dropped, filled_ - dropped);
  taken_ -= dropped;
  filled_ -= dropped;
  // A position that is gone becomes the first one, which is compared like any other.
  for (std::uint32_t& position : seen_)
    position -= std::min(position, static_cast<std::uint32_t>(dropped));
}

} // namespace tessarin::png
