#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tessarin::png {

// Some bytes as they are, and then a repetition of bytes before.
struct Sequence {
  std::uint32_t literals = 0;
  std::uint32_t length = 0;   // of the repetition; 0, or 3 and more without bound
  std::uint32_t distance = 0; // backwards; 1 to 32768
};

// Appends bits, the lowest first, to memory that is large enough: up to 8 bytes beyond the last one that
// counts are overwritten.
class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* position) : position_(position) {}

  // At most 56 bits may be added between two calls of flush.
  void add(std::uint64_t bits, unsigned count) {
    pending_ |= bits << count_;
    count_ += count;
  }
  void flush() {
    std::memcpy(position_, &pending_, sizeof pending_);
    position_ += count_ / 8;
    pending_ >>= count_ / 8 * 8;
    count_ %= 8;
  }
  // Fills the last byte with zeros.
  void align() {
    count_ = (count_ + 7) / 8 * 8;
    flush();
  }
  // Only after align.
  void copy(std::span<const std::uint8_t> bytes) {
    std::memcpy(position_, bytes.data(), bytes.size());
    position_ += bytes.size();
  }
  // Where the next byte goes.
  std::uint8_t* position() const { return position_; }

 private:
  std::uint8_t* position_;
  std::uint64_t pending_ = 0;
  unsigned count_ = 0;
};

// Writes one block, or several where the bytes are better stored as they are. The sequences make up the
// whole of the bytes; there may be none. Takes at most `blockBound` bytes.
void writeBlock(BitWriter& out, std::span<const std::uint8_t> bytes, std::span<const Sequence> sequences,
                bool isLast);

constexpr std::size_t blockBound(std::size_t byteCount) {
  constexpr std::size_t storedBlock = 65535;
  return byteCount + 5 * (byteCount / storedBlock + 1) + 16;
}

} // namespace tessarin::png
