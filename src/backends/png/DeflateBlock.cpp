#include "backends/png/DeflateBlock.hpp"

#include "backends/png/PrefixCode.hpp"

#include <algorithm>
#include <array>

namespace tessarin::png {

namespace {

// The alphabets of the format.

constexpr std::size_t literalSymbols = 286; // bytes, the end of the block, and lengths from 257 on
constexpr std::size_t endOfBlock = 256;
constexpr std::size_t distanceSymbols = 30;
constexpr std::size_t codeLengthSymbols = 19;

// Four literals and the bits left over from before fit 64 bits.
constexpr int longestLiteralCode = 14;
constexpr int longestDistanceCode = 15;
constexpr int longestCodeLengthCode = 7;

constexpr std::uint32_t shortestMatch = 3;
constexpr std::uint32_t longestMatch = 258;

struct Range {
  std::uint16_t symbol = 0;
  std::uint16_t base = 0;
  std::uint8_t extraBits = 0;
};

// By length.
constexpr std::array<Range, longestMatch + 1> makeLengthRanges() {
  std::array<Range, longestMatch + 1> ranges{};
  std::uint16_t base = shortestMatch;
  for (std::uint16_t symbol = 257; symbol < 285; ++symbol) {
    const auto extraBits = static_cast<std::uint8_t>(symbol < 265 ? 0 : (symbol - 261) / 4);
    for (std::uint16_t offset = 0; offset < 1 << extraBits; ++offset)
      ranges[base + offset] = {symbol, base, extraBits};
    base = static_cast<std::uint16_t>(base + (1 << extraBits));
  }
  ranges[longestMatch] = {285, longestMatch, 0};
  return ranges;
}

// By distance less one up to 255, and behind that by the same shifted by 7.
constexpr std::array<Range, 512> makeDistanceRanges() {
  std::array<Range, 512> ranges{};
  std::uint32_t base = 1;
  for (std::uint16_t symbol = 0; symbol < distanceSymbols; ++symbol) {
    const auto extraBits = static_cast<std::uint8_t>(symbol < 2 ? 0 : symbol / 2 - 1);
    const Range range{symbol, static_cast<std::uint16_t>(base), extraBits};
    for (std::uint32_t distance = base; distance < base + (1U << extraBits); ++distance)
      ranges[distance <= 256 ? distance - 1 : 256 + ((distance - 1) >> 7)] = range;
    base += 1U << extraBits;
  }
  return ranges;
}

constexpr auto lengthRanges = makeLengthRanges();
constexpr auto distanceRanges = makeDistanceRanges();

const Range& rangeOfDistance(std::uint32_t distance) {
  return distanceRanges[distance <= 256 ? distance - 1 : 256 + ((distance - 1) >> 7)];
}

// A repetition of any length in pieces that the format can say.
template<class Piece> void forEachPiece(std::uint32_t length, Piece piece) {
  for (; length > longestMatch + shortestMatch - 1; length -= longestMatch)
    piece(longestMatch);
  if (length > longestMatch) {
    piece(length - shortestMatch);
    length = shortestMatch;
  }
  piece(length);
}

struct Frequencies {
  std::array<std::uint32_t, literalSymbols> literals{};
  std::array<std::uint32_t, distanceSymbols> distances{};
  std::uint64_t extraBits = 0;
};

// Counts in four places in turn, since counting one byte again and again waits for itself.
class LiteralCounts {
 public:
  void add(const std::uint8_t* bytes, std::size_t count) {
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
      std::uint64_t word = 0;
      std::memcpy(&word, bytes + i, sizeof word);
      ++counts_[0][word & 0xFF];
      ++counts_[1][word >> 8 & 0xFF];
      ++counts_[2][word >> 16 & 0xFF];
      ++counts_[3][word >> 24 & 0xFF];
      ++counts_[0][word >> 32 & 0xFF];
      ++counts_[1][word >> 40 & 0xFF];
      ++counts_[2][word >> 48 & 0xFF];
      ++counts_[3][word >> 56];
    }
    for (; i < count; ++i)
      ++counts_[i % 4][bytes[i]];
  }
  std::uint32_t of(std::size_t byte) const {
    return counts_[0][byte] + counts_[1][byte] + counts_[2][byte] + counts_[3][byte];
  }

 private:
  std::array<std::array<std::uint32_t, 256>, 4> counts_{};
};

Frequencies frequenciesOf(std::span<const std::uint8_t> bytes, std::span<const Sequence> sequences) {
  Frequencies result;
  LiteralCounts counts;
  const std::uint8_t* next = bytes.data();
  for (const Sequence& sequence : sequences) {
    counts.add(next, sequence.literals);
    next += sequence.literals + sequence.length;
    if (sequence.length == 0)
      continue;
    const Range& distance = rangeOfDistance(sequence.distance);
    forEachPiece(sequence.length, [&](std::uint32_t length) {
      ++result.literals[lengthRanges[length].symbol];
      ++result.distances[distance.symbol];
      result.extraBits += lengthRanges[length].extraBits + distance.extraBits;
    });
  }
  for (std::size_t byte = 0; byte < 256; ++byte)
    result.literals[byte] = counts.of(byte);
  result.literals[endOfBlock] = 1;
  return result;
}

// The lengths of the two codes, in one row, as the header of a block tells them: runs are abbreviated.
class CodeLengths {
 public:
  explicit CodeLengths(const Frequencies& frequencies) {
    assignLengths(frequencies.literals, longestLiteralCode, literals());
    assignLengths(frequencies.distances, longestDistanceCode, distances());
    abbreviate();
    std::array<std::uint32_t, codeLengthSymbols> counts{};
    for (std::size_t i = 0; i < tokenCount_; ++i)
      ++counts[tokens_[i].symbol];
    assignLengths(counts, longestCodeLengthCode, codeLengthLengths_);
    assignCodes(codeLengthLengths_, codeLengthCodes_);
  }

  std::span<std::uint8_t, literalSymbols> literals() { return std::span(lengths_).first<literalSymbols>(); }
  std::span<std::uint8_t, distanceSymbols> distances() { return std::span(lengths_).last<distanceSymbols>(); }

  std::uint64_t headerBits() const {
    std::uint64_t bits = 3 + 5 + 5 + 4 + 3 * codeLengthSymbols;
    for (std::size_t i = 0; i < tokenCount_; ++i)
      bits += codeLengthLengths_[tokens_[i].symbol] + extraBitsOf(tokens_[i].symbol);
    return bits;
  }

  void write(BitWriter& out, bool isLast) const {
    constexpr unsigned dynamicCodes = 2;
    out.add(isLast ? 1 : 0, 1);
    out.add(dynamicCodes, 2);
    out.add(literalSymbols - 257, 5);
    out.add(distanceSymbols - 1, 5);
    out.add(codeLengthSymbols - 4, 4);
    out.flush();
    for (const std::size_t symbol : {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15}) {
      out.add(codeLengthLengths_[symbol], 3);
      out.flush();
    }
    for (std::size_t i = 0; i < tokenCount_; ++i) {
      const CodeWord& code = codeLengthCodes_[tokens_[i].symbol];
      out.add(code.bits, code.length);
      out.add(tokens_[i].extra, extraBitsOf(tokens_[i].symbol));
      out.flush();
    }
  }

 private:
  static constexpr std::uint8_t repeatLast = 16;
  static constexpr std::uint8_t repeatZeroShort = 17;
  static constexpr std::uint8_t repeatZeroLong = 18;

  struct Token {
    std::uint8_t symbol = 0;
    std::uint8_t extra = 0;
  };

  static unsigned extraBitsOf(std::uint8_t symbol) {
    return symbol == repeatLast ? 2 : symbol == repeatZeroShort ? 3 : symbol == repeatZeroLong ? 7 : 0;
  }

  void add(std::uint8_t symbol, std::size_t extra = 0) {
    tokens_[tokenCount_++] = {symbol, static_cast<std::uint8_t>(extra)};
  }

  void abbreviate() {
    for (std::size_t start = 0; start < lengths_.size();) {
      const std::uint8_t length = lengths_[start];
      std::size_t end = start + 1;
      while (end < lengths_.size() && lengths_[end] == length)
        ++end;
      addRun(length, end - start);
      start = end;
    }
  }

  void addRun(std::uint8_t length, std::size_t count) {
    if (length == 0) {
      for (; count >= 11; count -= std::min<std::size_t>(count, 138))
        add(repeatZeroLong, std::min<std::size_t>(count, 138) - 11);
      if (count >= 3) {
        add(repeatZeroShort, count - 3);
        return;
      }
    } else {
      add(length);
      for (--count; count >= 3; count -= std::min<std::size_t>(count, 6))
        add(repeatLast, std::min<std::size_t>(count, 6) - 3);
    }
    for (; count > 0; --count)
      add(length);
  }

  std::array<std::uint8_t, literalSymbols + distanceSymbols> lengths_{};
  std::array<Token, literalSymbols + distanceSymbols> tokens_{};
  std::size_t tokenCount_ = 0;
  std::array<std::uint8_t, codeLengthSymbols> codeLengthLengths_{};
  std::array<CodeWord, codeLengthSymbols> codeLengthCodes_{};
};

void writeStored(BitWriter& out, std::span<const std::uint8_t> bytes, bool isLast) {
  constexpr std::size_t longestStored = 65535;
  do {
    const std::size_t count = std::min(bytes.size(), longestStored);
    out.add(isLast && count == bytes.size() ? 1 : 0, 3);
    out.align();
    out.add(count | (~count & 0xFFFF) << 16, 32);
    out.align();
    out.copy(bytes.first(count));
    bytes = bytes.subspan(count);
  } while (!bytes.empty());
}

// Literals as they are, several between two looks at the room in a word.
void writeLiterals(BitWriter& out, const std::uint8_t* bytes, std::size_t count,
                   std::span<const CodeWord> codes) {
  // In registers, whatever is written to memory.
  BitWriter bits = out;
  const CodeWord* const table = codes.data();
  const auto add = [&](std::uint64_t byte) { bits.add(table[byte].bits, table[byte].length); };
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes + i, sizeof word);
    add(word & 0xFF);
    add(word >> 8 & 0xFF);
    add(word >> 16 & 0xFF);
    add(word >> 24 & 0xFF);
    bits.flush();
    add(word >> 32 & 0xFF);
    add(word >> 40 & 0xFF);
    add(word >> 48 & 0xFF);
    add(word >> 56);
    bits.flush();
  }
  for (; i < count; ++i) {
    add(bytes[i]);
    bits.flush();
  }
  out = bits;
}

void writeSequences(BitWriter& out, const std::uint8_t* next, std::span<const Sequence> sequences,
                    std::span<const CodeWord> literals, std::span<const CodeWord> distances) {
  const auto add = [&out](const CodeWord& code) { out.add(code.bits, code.length); };
  for (const Sequence& sequence : sequences) {
    writeLiterals(out, next, sequence.literals, literals);
    next += sequence.literals + sequence.length;
    if (sequence.length == 0)
      continue;
    const Range& distance = rangeOfDistance(sequence.distance);
    forEachPiece(sequence.length, [&](std::uint32_t pieceLength) {
      const Range& length = lengthRanges[pieceLength];
      add(literals[length.symbol]);
      out.add(pieceLength - length.base, length.extraBits);
      add(distances[distance.symbol]);
      out.add(sequence.distance - distance.base, distance.extraBits);
      out.flush();
    });
  }
  add(literals[endOfBlock]);
  out.flush();
}

} // namespace

void writeBlock(BitWriter& out, std::span<const std::uint8_t> bytes, std::span<const Sequence> sequences,
                bool isLast) {
  const Frequencies frequencies = frequenciesOf(bytes, sequences);
  CodeLengths lengths(frequencies);
  std::uint64_t bits = lengths.headerBits() + frequencies.extraBits;
  for (std::size_t symbol = 0; symbol < literalSymbols; ++symbol)
    bits += std::uint64_t{frequencies.literals[symbol]} * lengths.literals()[symbol];
  for (std::size_t symbol = 0; symbol < distanceSymbols; ++symbol)
    bits += std::uint64_t{frequencies.distances[symbol]} * lengths.distances()[symbol];
  if (bits >= 8 * bytes.size()) {
    writeStored(out, bytes, isLast);
    return;
  }
  std::array<CodeWord, literalSymbols> literals{};
  std::array<CodeWord, distanceSymbols> distances{};
  assignCodes(lengths.literals(), literals);
  assignCodes(lengths.distances(), distances);
  lengths.write(out, isLast);
  writeSequences(out, bytes.data(), sequences, literals, distances);
}

} // namespace tessarin::png
