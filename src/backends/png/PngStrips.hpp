#pragma once

#include "backends/png/DeflateStream.hpp"
#include "backends/png/PngRows.hpp"
#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessarin::png {

// How a picture is cut into strips of rows, which are compressed by themselves. Depends on the picture's size
// alone, so that the file does too.
struct StripLayout {
  std::size_t rowSize = 0; // bytes of a row in the file, with its filter byte
  std::size_t height = 0;  // rows of the picture
  std::size_t rows = 0;    // of each strip but the last, which may have fewer
  std::size_t count = 0;   // of strips

  // The picture has at least one pixel.
  explicit StripLayout(const PictureView& picture);

  std::size_t firstRow(std::size_t strip) const { return strip * rows; }
  std::size_t endRow(std::size_t strip) const { return strip + 1 < count ? (strip + 1) * rows : height; }
  std::size_t byteCount(std::size_t strip) const { return (endRow(strip) - firstRow(strip)) * rowSize; }
};

// Compresses strips, one after another, in any order. One thread.
class StripCoder {
 public:
  // The picture stays as it is, for as long as the coder exists.
  StripCoder(const PictureView& picture, const StripLayout& layout);

  struct Coded {
    std::uint8_t* end = nullptr; // of what was written
    std::uint32_t checksum = 0;  // of the strip's bytes by themselves, as zlib has it
  };
  // The strip's part of the stream of all strips. The memory has room for DeflateStream::bound.
  Coded code(std::size_t strip, std::uint8_t* out);

 private:
  using Piece = std::span<const std::uint8_t>;
  void codeGroup(std::size_t first, std::size_t end);
  Piece putRows(std::size_t first, std::size_t end, DeflateStream::Kind kind, RowFilter filter);
  void check(Piece piece);
  RowFilter bestFilter(std::size_t row);

  const PictureView picture_;
  const StripLayout layout_;
  DeflateStream stream_;
  std::vector<std::uint8_t> trial_; // one row
  std::uint32_t checksum_ = 1;
};

// The checksum of bytes followed by others, from the checksums of both.
std::uint32_t joinedChecksum(std::uint32_t first, std::uint32_t second, std::size_t secondByteCount);

} // namespace tessarin::png
