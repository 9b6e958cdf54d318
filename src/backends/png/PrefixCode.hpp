#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tessarin::png {

// The prefix codes of a deflate stream. Pure, any thread.

// One symbol's code as it goes into the stream, first bit lowest; no bits for a symbol without a code.
struct CodeWord {
  std::uint16_t bits = 0;
  std::uint8_t length = 0;
};

// Lengths of an optimal prefix code for the frequencies, none longer than the limit, 0 for symbols that do
// not occur. There are always at least two codes, so that the code is complete for every reader.
// Precondition: at least two symbols, at most 2^limit, and at most 288.
void assignLengths(std::span<const std::uint32_t> frequencies, int limit, std::span<std::uint8_t> lengths);

// The canonical codes of lengths up to 15.
void assignCodes(std::span<const std::uint8_t> lengths, std::span<CodeWord> codes);

} // namespace tessarin::png
