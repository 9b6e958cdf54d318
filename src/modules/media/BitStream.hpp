#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Bits and codes of H.264 and H.265 syntax: u(n), ue(v), se(v). No state beyond the objects; any thread.
namespace tessarin::media {

// Reads from the most significant bit on. Beyond the end it yields zeros and remembers that it did.
class BitReader {
 public:
  explicit BitReader(std::span<const std::byte> bytes) : bytes_(bytes) {}

  std::uint32_t bits(int count); // at most 32
  bool flag() { return bits(1) != 0; }
  std::uint32_t ue();
  std::int32_t se();

  std::size_t position() const { return position_; } // in bits
  bool isBeyondEnd() const { return position_ > bytes_.size() * 8; }

 private:
  std::span<const std::byte> bytes_;
  std::size_t position_ = 0;
};

class BitWriter {
 public:
  void bits(std::uint32_t value, int count); // at most 32
  void flag(bool value) { bits(value ? 1 : 0, 1); }
  void ue(std::uint32_t value);
  void se(std::int32_t value);
  // Fills up the last byte.
  void align(bool value);

  std::size_t bitCount() const { return bitCount_; }
  // Zeros fill up the last byte.
  const std::vector<std::byte>& bytes() const { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
  std::size_t bitCount_ = 0;
};

// Puts the value into `count` bits that begin `position` bits into the bytes.
void overwriteBits(std::span<std::byte> bytes, std::size_t position, std::uint32_t value, int count);

} // namespace tessarin::media
