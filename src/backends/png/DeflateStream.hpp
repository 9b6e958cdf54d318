#pragma once

#include "backends/png/DeflateBlock.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tessarin::png {

// Compresses bytes that are put into its memory, in the format "deflate". A search for repetitions looks in
// one place only, takes the first it finds, and passes ever faster over bytes in which it finds none. What it
// holds stays in the processor's cache. One thread.
class DeflateStream {
 public:
  // Bytes that a stream may take, with what is overwritten behind its end.
  static std::size_t bound(std::size_t byteCount);

  explicit DeflateStream(std::size_t largestPiece);

  // Begins a stream, which refers to nothing before it. The memory is not owned and has room for the bound of
  // all bytes to come.
  void begin(std::uint8_t* out);
  // How a piece is taken: with a search for repetitions, or as it is, which is best for bytes that differ in
  // nothing but how often they occur.
  enum class Kind : std::uint8_t { searched, plain };
  // Where the next piece is to be put, up to the largest.
  std::uint8_t* beginPiece(Kind kind);
  // Takes the piece that was put there. Yields about how many bytes its repetitions save.
  std::size_t append(std::size_t byteCount);
  // Forgets the last piece.
  void takeBack();
  // Ends the stream, at the end of a byte; another one that is put behind it continues it, unless it is the
  // last. Yields the position behind it.
  std::uint8_t* end(bool isLast);

 private:
  static constexpr unsigned hashBits = 14;

  void search();
  std::size_t takeMatch(std::size_t position, std::size_t candidate);
  void writeBlockSoFar(bool isLast);
  void slide();

  // Bytes that repetitions may refer to, then bytes to be coded. Positions count from its start.
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t start_ = 0;      // of the block being made
  std::size_t taken_ = 0;      // end of what is in sequences
  std::size_t position_ = 0;   // end of what was searched or needs no search
  std::size_t filled_ = 0;     // end of what was appended
  std::size_t misses_ = 0;     // places in a row without a repetition
  std::size_t saved_ = 0;      // by the repetitions of the last piece
  Kind kind_ = Kind::searched; // of the last piece
  std::array<std::uint32_t, std::size_t{1} << hashBits> seen_{}; // the last position of each key
  std::vector<Sequence> sequences_;                              // of the block being made
  struct {
    std::size_t taken = 0, position = 0, filled = 0, misses = 0, sequences = 0;
  } before_; // the last piece
  BitWriter out_{nullptr};
};

} // namespace tessarin::png
