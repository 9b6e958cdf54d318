#pragma once

#include "modules/media/NalUnits.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tessarin::media {

// The bytes of a box of an MPEG-4 file as they are put together: big-endian fields one after another.
class BoxBytes {
 public:
  void number(std::uint64_t value, int bytes) {
    while (bytes-- > 0)
      bytes_.push_back(static_cast<std::byte>(value >> (8 * bytes)));
  }
  void zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, std::byte{0}); }
  void bytes(std::span<const std::byte> all) { bytes_.insert(bytes_.end(), all.begin(), all.end()); }
  void code(std::string_view text) {
    for (const char each : text)
      bytes_.push_back(static_cast<std::byte>(each));
  }
  void box(std::string_view type, const BoxBytes& content) {
    number(content.bytes_.size() + 8, 4);
    code(type);
    bytes(content.bytes_);
  }
  // A parameter set behind its 16-bit length.
  void unit(std::span<const std::byte> all) {
    number(all.size(), 2);
    bytes(all);
  }

  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

} // namespace tessarin::media
