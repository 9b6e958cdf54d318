#include "modules/media/BitStream.hpp"

#include <bit>

namespace tessarin::media {

std::uint32_t BitReader::bits(int count) {
  std::uint32_t value = 0;
  for (; count > 0; --count, ++position_) {
    const std::size_t byte = position_ / 8;
    const unsigned bit =
        byte < bytes_.size() ? std::to_integer<unsigned>(bytes_[byte]) >> (7 - position_ % 8) : 0;
    value = value << 1 | (bit & 1);
  }
  return value;
}

std::uint32_t BitReader::ue() {
  int zeros = 0;
  while (zeros < 32 && !isBeyondEnd() && !flag())
    ++zeros;
  if (zeros >= 32) {
    position_ = bytes_.size() * 8 + 1;
    return 0;
  }
  return (1U << zeros) - 1 + bits(zeros);
}

std::int32_t BitReader::se() {
  const std::uint32_t code = ue();
  const auto magnitude = static_cast<std::int32_t>(code / 2 + code % 2);
  return code % 2 != 0 ? magnitude : -magnitude;
}

void BitWriter::bits(std::uint32_t value, int count) {
  while (count > 0) {
    --count;
    if (bitCount_ % 8 == 0)
      bytes_.push_back(std::byte{0});
    if ((value >> count & 1) != 0)
      bytes_.back() |= std::byte{0x80} >> static_cast<int>(bitCount_ % 8);
    ++bitCount_;
  }
}

void BitWriter::ue(std::uint32_t value) {
  const int length = static_cast<int>(std::bit_width(value + 1));
  bits(0, length - 1);
  bits(value + 1, length);
}

void BitWriter::se(std::int32_t value) {
  ue(value > 0 ? static_cast<std::uint32_t>(value) * 2 - 1 : static_cast<std::uint32_t>(-value) * 2);
}

void BitWriter::align(bool value) {
  while (bitCount_ % 8 != 0)
    flag(value);
}

void overwriteBits(std::span<std::byte> bytes, std::size_t position, std::uint32_t value, int count) {
  while (count > 0) {
    --count;
    std::byte& byte = bytes[position / 8];
    const std::byte mask = std::byte{0x80} >> static_cast<int>(position % 8);
    byte = (value >> count & 1) != 0 ? byte | mask : byte & ~mask;
    ++position;
  }
}

} // namespace tessarin::media
