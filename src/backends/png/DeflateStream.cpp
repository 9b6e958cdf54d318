#include "backends/png/DeflateStream.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tessarin::png {

namespace {

static_assert(std::endian::native == std::endian::little, "bytes are compared as little-endian words");

constexpr std::size_t window = 32768;
constexpr std::size_t blockSize = 1 << 18; // or up to a piece more

// Less is not worth codes of its own, even where the bytes change.
constexpr std::size_t shortestBlock = 1 << 15;

// A shorter repetition costs about what its bytes cost by themselves.
constexpr unsigned shortestMatch = 6;

// So far from the end of what is there, words can be read without a look at it.
constexpr std::size_t tail = 16;

// One byte more a step after each so many places without a repetition, up to the longest step.
constexpr std::size_t missesForLongerStep = 32;
constexpr std::size_t longestStep = 64;

// What follows a stream that goes on: an empty stored block.
constexpr std::size_t junctionSize = 5;

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

// How many bytes from the position on equal those at the candidate, which lies before it. A few bytes at the
// end may be left out.
std::size_t commonLength(const std::uint8_t* position, const std::uint8_t* candidate,
                         const std::uint8_t* end) {
  const auto limit = static_cast<std::size_t>(end - position);
  std::size_t length = 0;
#if defined(__SSE2__)
  const auto equalBytes = [&](std::size_t offset) {
    const auto load = [](const std::uint8_t* from) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    };
    const __m128i equal = _mm_cmpeq_epi8(load(position + offset), load(candidate + offset));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(equal));
  };
  for (; length + 32 <= limit; length += 32) {
    const std::uint32_t different = ~(equalBytes(length) | equalBytes(length + 16) << 16);
    if (different != 0)
      return length + static_cast<std::size_t>(std::countr_zero(different));
  }
#endif
  for (; length + sizeof(std::uint64_t) <= limit; length += sizeof(std::uint64_t)) {
    const std::uint64_t different = wordAt(position + length) ^ wordAt(candidate + length);
    if (different != 0)
      return length + static_cast<std::size_t>(std::countr_zero(different)) / 8;
  }
  return length;
}

} // namespace

std::size_t DeflateStream::bound(std::size_t byteCount) {
  return blockBound(byteCount) + (byteCount / shortestBlock + 1) * blockBound(0) + junctionSize;
}

DeflateStream::DeflateStream(std::size_t largestPiece)
    : buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(window + blockSize + largestPiece)) {}

void DeflateStream::begin(std::uint8_t* out) {
  start_ = taken_ = position_ = filled_ = misses_ = 0;
  before_ = {};
  kind_ = Kind::searched;
  seen_.fill(0);
  sequences_.clear();
  out_ = BitWriter(out);
}

// Bytes of another kind get codes of their own.
std::uint8_t* DeflateStream::beginPiece(Kind kind) {
  const std::size_t enough = kind == kind_ ? blockSize : shortestBlock;
  if (filled_ - start_ >= blockSize || position_ - start_ >= enough) {
    writeBlockSoFar(false);
    slide();
  }
  kind_ = kind;
  before_ = {taken_, position_, filled_, misses_, sequences_.size()};
  return buffer_.get() + filled_;
}

std::size_t DeflateStream::append(std::size_t byteCount) {
  filled_ += byteCount;
  saved_ = 0;
  if (kind_ == Kind::searched)
    search();
  else
    position_ = filled_;
  return saved_;
}

// Places that were seen in the piece stay; what is there is compared before it is taken for a repetition.
void DeflateStream::takeBack() {
  taken_ = before_.taken;
  position_ = before_.position;
  filled_ = before_.filled;
  misses_ = before_.misses;
  sequences_.resize(before_.sequences);
}

std::uint8_t* DeflateStream::end(bool isLast) {
  position_ = filled_;
  if (isLast || position_ > start_)
    writeBlockSoFar(isLast);
  if (!isLast) {
    constexpr std::uint64_t lengthAndComplement = 0xFFFF0000;
    out_.add(0, 3);
    out_.align();
    out_.add(lengthAndComplement, 32);
  }
  out_.align();
  return out_.position();
}

// All that is there, but for the few bytes at the end in which no repetition is looked for.
void DeflateStream::search() {
  const std::size_t end = filled_ > tail ? filled_ - tail : 0;
  const std::uint8_t* const bytes = buffer_.get();
  std::size_t position = position_;
  std::size_t misses = misses_;
  while (position < end) {
    const std::uint64_t word = wordAt(bytes + position);
    std::uint32_t& seen = seen_[slotOf<hashBits>(word)];
    const std::size_t candidate = seen;
    seen = static_cast<std::uint32_t>(position);
    if (candidate < position && position - candidate <= window &&
        keyOf(wordAt(bytes + candidate)) == keyOf(word)) {
      position = takeMatch(position, candidate);
      misses = 0;
    } else {
      position += std::min(1 + misses++ / missesForLongerStep, longestStep);
    }
  }
  misses_ = misses;
  position_ = std::min(position, filled_);
}

// Extends a repetition to both sides; yields the position behind it.
std::size_t DeflateStream::takeMatch(std::size_t position, std::size_t candidate) {
  const std::uint8_t* const bytes = buffer_.get();
  constexpr std::size_t known = shortestMatch;
  const std::size_t end =
      position + known + commonLength(bytes + position + known, bytes + candidate + known, bytes + filled_);
  while (position > taken_ && candidate > 0 && bytes[position - 1] == bytes[candidate - 1]) {
    --position;
    --candidate;
  }
  const std::size_t length = end - position;
  // Where bytes take half their room by their code, and telling a repetition takes three bytes.
  saved_ += length > 6 ? length / 2 - 3 : 0;
  sequences_.push_back({static_cast<std::uint32_t>(position - taken_), static_cast<std::uint32_t>(length),
                        static_cast<std::uint32_t>(position - candidate)});
  taken_ = end;
  const std::size_t last = std::min(end - 2, filled_ - sizeof(std::uint64_t));
  seen_[slotOf<hashBits>(wordAt(bytes + last))] = static_cast<std::uint32_t>(last);
  return end;
}

void DeflateStream::writeBlockSoFar(bool isLast) {
  if (position_ > taken_)
    sequences_.push_back({static_cast<std::uint32_t>(position_ - taken_), 0, 0});
  writeBlock(out_, {buffer_.get() + start_, position_ - start_}, sequences_, isLast);
  sequences_.clear();
  start_ = taken_ = position_;
}

// Drops what repetitions can no longer refer to.
void DeflateStream::slide() {
  const std::size_t dropped = start_ - std::min(start_, window);
  std::memmove(buffer_.get(), buffer_.get() + dropped, filled_ - dropped);
  start_ -= dropped;
  taken_ -= dropped;
  position_ -= dropped;
  filled_ -= dropped;
  // A position that is gone becomes the first one, which is compared like any other.
  for (std::uint32_t& position : seen_)
    position -= std::min(position, static_cast<std::uint32_t>(dropped));
}

} // namespace tessarin::png
