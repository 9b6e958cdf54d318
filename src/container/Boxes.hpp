#pragma once

#include "container/Movie.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The box structure of ISO/IEC 14496-12 in memory, read with every bound checked. Violations throw
// ContainerFailure(damaged). Spans point into the memory handed in. Plain values, any thread.
namespace tessarin::container {

using FourCC = std::uint32_t;

constexpr FourCC fourCC(const char (&text)[5]) {
  FourCC value = 0;
  for (int i = 0; i < 4; ++i)
    value = value << 8 | static_cast<unsigned char>(text[i]);
  return value;
}

[[noreturn]] void failDamaged();

// Reads big-endian numbers one after another.
class ByteCursor {
 public:
  explicit ByteCursor(std::span<const std::byte> bytes) : bytes_(bytes) {}

  std::size_t remaining() const { return bytes_.size(); }
  std::span<const std::byte> take(std::size_t count) {
    if (count > bytes_.size())
      failDamaged();
    const auto taken = bytes_.first(count);
    bytes_ = bytes_.subspan(count);
    return taken;
  }
  void skip(std::size_t count) { take(count); }
  std::uint8_t u8() { return static_cast<std::uint8_t>(number<1>()); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number<2>()); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number<4>()); }
  std::uint64_t u64() { return number<8>(); }
  std::int16_t i16() { return static_cast<std::int16_t>(u16()); }
  std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
  std::int64_t i64() { return static_cast<std::int64_t>(u64()); }

 private:
  template<std::size_t size> std::uint64_t number() {
    std::uint64_t value = 0;
    for (const std::byte byte : take(size))
      value = value << 8 | std::to_integer<std::uint64_t>(byte);
    return value;
  }

  std::span<const std::byte> bytes_;
};

struct BoxHeader {
  FourCC type = 0;
  std::uint32_t headerSize = 0;
  std::uint64_t size = 0; // with the header; 0 means up to the end of the file
};

// The header at the front of the bytes, which may be cut off: nothing is known then. Damaged when it
// cannot be one.
std::optional<BoxHeader> readBoxHeader(std::span<const std::byte> bytes);

struct Box {
  FourCC type = 0;
  std::span<const std::byte> whole;
  std::span<const std::byte> content; // without the header
};

// The boxes that a container box holds; together they fill it. More than 4096 are tooLarge.
class BoxList {
 public:
  explicit BoxList(std::span<const std::byte> content);

  const std::vector<Box>& all() const& { return boxes_; }
  const std::vector<Box>& all() && = delete; // would not outlive the list
  // Null when absent; damaged when there are several.
  const Box* find(FourCC type) const;
  const Box& require(FourCC type) const;
  ByteCursor requireContent(FourCC type) const { return ByteCursor(require(type).content); }

 private:
  std::vector<Box> boxes_;
};

// The head of a full box.
struct VersionAndFlags {
  std::uint8_t version = 0;
  std::uint32_t flags = 0;
};

// Unsupported when the version is above the highest one known.
VersionAndFlags readVersionAndFlags(ByteCursor& cursor, std::uint8_t highestVersion);

} // namespace tessarin::container
