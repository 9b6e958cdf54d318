#pragma once

#include "container/Boxes.hpp"

#include <utility>

namespace tessarin::container {

// Puts boxes together in memory. Plain value, any thread.
class BoxWriter {
 public:
  void u8(std::uint8_t value) { bytes_.push_back(static_cast<std::byte>(value)); }
  void u16(std::uint16_t value) { number<2>(value); }
  void u32(std::uint32_t value) { number<4>(value); }
  void u64(std::uint64_t value) { number<8>(value); }
  void i32(std::int32_t value) { u32(static_cast<std::uint32_t>(value)); }
  void code(FourCC value) { u32(value); }
  void zeros(std::size_t count) { bytes_.resize(bytes_.size() + count); }
  void append(std::span<const std::byte> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

  // A box around what the body writes. tooLarge beyond 4 GiB.
  template<class Body> void box(FourCC type, Body body) {
    const std::size_t start = bytes_.size();
    u32(0);
    code(type);
    body();
    const std::size_t size = bytes_.size() - start;
    if (size > UINT32_MAX)
      throw ContainerFailure(ContainerError::tooLarge);
    setU32(start, static_cast<std::uint32_t>(size));
  }
  template<class Body> void fullBox(FourCC type, std::uint8_t version, std::uint32_t flags, Body body) {
    box(type, [&] {
      u32(std::uint32_t{version} << 24 | flags);
      body();
    });
  }

  void setU32(std::size_t position, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i)
      bytes_[position + i] = static_cast<std::byte>(value >> (24 - 8 * i));
  }

  std::size_t size() const { return bytes_.size(); }
  const std::vector<std::byte>& bytes() const { return bytes_; }

 private:
  template<std::size_t size> void number(std::uint64_t value) {
    for (std::size_t i = 0; i < size; ++i)
      bytes_.push_back(static_cast<std::byte>(value >> (8 * (size - 1 - i))));
  }

  std::vector<std::byte> bytes_;
};

} // namespace tessarin::container
