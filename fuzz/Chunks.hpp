#pragma once

#include "Fuzz.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tessarin::fuzz {

// An input as a stream that comes in pieces: its first bytes tell how long the pieces are, over and over.
// What follows the first zero among them, or the sixteenth, is the stream.
class Chunks {
 public:
  explicit Chunks(std::string_view input) {
    const std::size_t end = std::min(input.find('\0'), std::min(input.size(), mostLengths));
    lengths_ = input.substr(0, end);
    rest_ = stream_ = input.substr(std::min(end + 1, input.size()));
  }

  std::string_view stream() const { return stream_; }

  // The next piece, of at most `limit` bytes; empty at the end of the stream. Lengths grow with their square,
  // so that pieces of one byte and of many thousands are both near.
  std::string_view next(std::size_t limit) {
    std::size_t length = rest_.size();
    if (!lengths_.empty()) {
      const auto root = static_cast<unsigned char>(lengths_[index_++ % lengths_.size()]);
      length = std::size_t{root} * root;
    }
    const std::string_view piece = rest_.substr(0, std::min(length, limit));
    rest_.remove_prefix(piece.size());
    return piece;
  }

 private:
  static constexpr std::size_t mostLengths = 16;

  std::string_view lengths_;
  std::string_view stream_;
  std::string_view rest_;
  std::size_t index_ = 0;
};

} // namespace tessarin::fuzz
