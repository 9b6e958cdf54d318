#include "backends/png/PngStrips.hpp"

#include <libdeflate.h>

#include <algorithm>

namespace tessarin::png {

namespace {

// Large enough that what a strip can't refer to costs little, and small enough that several threads end at
// about the same time.
constexpr std::size_t stripSize = 1 << 19;

// Rows are looked at together: the first few of them tell how all are compressed.
constexpr std::size_t groupSize = 1 << 17;
constexpr std::size_t largestGroupSize = 1 << 20; // unless a row alone is larger
constexpr std::size_t leastRows = 16;
constexpr std::size_t probedRows = 2;

// Where repetitions save less than this part of the bytes, they are not worth the search.
constexpr std::size_t leastSavedPart = 32;

std::size_t rowsOfGroup(std::size_t rowSize) {
  const std::size_t rows = std::max(groupSize / rowSize, std::min(leastRows, largestGroupSize / rowSize));
  return std::max<std::size_t>(rows, 1);
}

std::size_t dividedUp(std::size_t value, std::size_t divisor) {
  return value / divisor + (value % divisor != 0 ? 1 : 0);
}

} // namespace

StripLayout::StripLayout(const PictureView& picture)
    : rowSize(1 + static_cast<std::size_t>(picture.width) * bytesPerPixel(picture.format)),
      height(static_cast<std::size_t>(picture.height)) {
  const std::size_t wanted = std::max<std::size_t>(rowSize * height / stripSize, 1);
  rows = dividedUp(height, std::min(wanted, height));
  count = dividedUp(height, rows);
}

StripCoder::StripCoder(const PictureView& picture, const StripLayout& layout)
    : picture_(picture), layout_(layout),
      stream_(std::min(rowsOfGroup(layout.rowSize), layout.rows) * layout.rowSize), trial_(layout.rowSize) {}

StripCoder::Coded StripCoder::code(std::size_t strip, std::uint8_t* out) {
  stream_.begin(out);
  checksum_ = 1;
  const std::size_t end = layout_.endRow(strip);
  const std::size_t groupRows = rowsOfGroup(layout_.rowSize);
  for (std::size_t row = layout_.firstRow(strip); row < end;) {
    const std::size_t groupEnd = std::min(row + groupRows, end);
    codeGroup(row, groupEnd);
    row = groupEnd;
  }
  return {stream_.end(strip + 1 == layout_.count), checksum_};
}

void StripCoder::codeGroup(std::size_t first, std::size_t end) {
  const std::size_t probeEnd = std::min(first + probedRows, end);
  const Piece probe = putRows(first, probeEnd, DeflateStream::Kind::searched, RowFilter::left);
  if (stream_.append(probe.size()) >= probe.size() / leastSavedPart) {
    check(probe);
    const Piece rest = putRows(probeEnd, end, DeflateStream::Kind::searched, RowFilter::left);
    check(rest);
    stream_.append(rest.size());
  } else {
    stream_.takeBack();
    const Piece all = putRows(first, end, DeflateStream::Kind::plain, bestFilter((first + end) / 2));
    check(all);
    stream_.append(all.size());
  }
}

// Puts rows into the stream's memory, each by a filter byte and its samples.
StripCoder::Piece StripCoder::putRows(std::size_t first, std::size_t end, DeflateStream::Kind kind,
                                      RowFilter filter) {
  std::uint8_t* const piece = stream_.beginPiece(kind);
  std::uint8_t* next = piece;
  for (std::size_t row = first; row < end; ++row, next += layout_.rowSize) {
    next[0] = static_cast<std::uint8_t>(filter);
    filterRow(sourceRow(picture_, row), filter, next + 1);
  }
  return {piece, next};
}

void StripCoder::check(Piece piece) {
  checksum_ = libdeflate_adler32(checksum_, piece.data(), piece.size());
}

RowFilter StripCoder::bestFilter(std::size_t row) {
  RowFilter best = RowFilter::left;
  std::uint64_t least = 0;
  for (const RowFilter filter : {RowFilter::left, RowFilter::above, RowFilter::average}) {
    filterRow(sourceRow(picture_, row), filter, trial_.data());
    const std::uint64_t found = magnitude(trial_.data(), layout_.rowSize - 1);
    if (filter == RowFilter::left || found < least) {
      best = filter;
      least = found;
    }
  }
  return best;
}

std::uint32_t joinedChecksum(std::uint32_t first, std::uint32_t second, std::size_t secondByteCount) {
  // Two sums modulo a prime: of the bytes, begun with 1, and of the first sum after each byte.
  constexpr std::uint64_t prime = 65521;
  const std::uint64_t count = secondByteCount % prime;
  const std::uint64_t sum = (first & 0xFFFF) + prime - 1; // without the one that the second begins with
  const std::uint64_t low = (sum + (second & 0xFFFF)) % prime;
  const std::uint64_t high = ((first >> 16) + (second >> 16) + sum % prime * count) % prime;
  return static_cast<std::uint32_t>(high << 16 | low);
}

} // namespace tessarin::png
