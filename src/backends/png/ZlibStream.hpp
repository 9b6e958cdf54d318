#pragma once

#include "backends/png/DeflateBlock.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tessarin::png {

// Compresses the filtered rows of a picture: at the sizes of general coders at their fastest level, but four
// times as fast, which is what a cold capture waits for. It looks for a repetition in one place only, takes
// the first it finds, and passes ever faster over bytes in which it finds none. What it holds stays in the
// processor's cache. One thread.
class ZlibStream {
 public:
  // Bytes that a stream may take, with what is overwritten behind its end.
  static std::size_t bound(std::size_t byteCount);

  // The memory is not owned and has room for the bound of all bytes to come.
  ZlibStream(std::size_t largestPiece, std::uint8_t* out);

  // Where the next piece is to be put, up to the largest.
  std::uint8_t* piece() { return buffer_.get() + filled_; }
  // Takes the piece that was put there.
  void append(std::size_t byteCount);
  // Ends the stream; yields the position behind it.
  std::uint8_t* finish();

 private:
  static constexpr unsigned hashBits = 14;

  void codeBlock(bool isLast);
  std::size_t takeMatch(std::size_t position, std::size_t candidate);
  void slide();

  // Bytes that repetitions may refer to, then bytes to be coded. Positions count from its start.
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t taken_ = 0;                                        // end of what is in blocks or sequences
  std::size_t filled_ = 0;                                       // end of what was appended
  std::array<std::uint32_t, std::size_t{1} << hashBits> seen_{}; // the last position of each key
  std::vector<Sequence> sequences_;                              // of the block being made
  std::uint32_t checksum_ = 1;
  BitWriter out_;
};

} // namespace tessarin::png
