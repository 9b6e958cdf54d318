#include "backends/png/DeflateStream.hpp"

#include <gtest/gtest.h>

#include <libdeflate.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

namespace tessarin::png {
namespace {

using Bytes = std::vector<std::uint8_t>;

using Kind = DeflateStream::Kind;

std::size_t appendTo(DeflateStream& stream, Kind kind, const Bytes& bytes) {
  std::copy(bytes.begin(), bytes.end(), stream.beginPiece(kind));
  return stream.append(bytes.size());
}

// Piece by piece, each of the kind that the function tells for its number.
template<class KindOf> Bytes compressed(const Bytes& bytes, std::size_t pieceSize, KindOf kindOf) {
  constexpr std::uint8_t untouched = 0xA5;
  const std::size_t bound = DeflateStream::bound(bytes.size());
  Bytes out(bound + 1, untouched);
  const auto stream = std::make_unique<DeflateStream>(pieceSize);
  stream->begin(out.data());
  for (std::size_t offset = 0; offset < bytes.size(); offset += pieceSize) {
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    const std::size_t count = std::min(pieceSize, bytes.size() - offset);
    appendTo(*stream, kindOf(offset / pieceSize), {start, start + static_cast<std::ptrdiff_t>(count)});
  }
  const auto size = static_cast<std::size_t>(stream->end(true) - out.data());
  EXPECT_LE(size, bound);
  EXPECT_EQ(out[bound], untouched) << "written beyond the bound";
  out.resize(size);
  return out;
}

Bytes compressed(const Bytes& bytes, std::size_t pieceSize) {
  return compressed(bytes, pieceSize, [](std::size_t) { return Kind::searched; });
}

// By another implementation.
Bytes decompressed(const Bytes& stream, std::size_t expectedSize) {
  Bytes bytes(expectedSize + 1);
  std::size_t consumed = 0;
  std::size_t produced = 0;
  libdeflate_decompressor* const decompressor = libdeflate_alloc_decompressor();
  const auto result = libdeflate_deflate_decompress_ex(decompressor, stream.data(), stream.size(),
                                                       bytes.data(), bytes.size(), &consumed, &produced);
  libdeflate_free_decompressor(decompressor);
  EXPECT_EQ(result, LIBDEFLATE_SUCCESS);
  EXPECT_EQ(consumed, stream.size());
  bytes.resize(produced);
  return bytes;
}

// Yields the compressed size.
std::size_t expectRoundTrip(const Bytes& bytes, std::size_t pieceSize, const std::string& what) {
  const Bytes stream = compressed(bytes, pieceSize);
  EXPECT_TRUE(decompressed(stream, bytes.size()) == bytes) << what;
  return stream.size();
}

Bytes noise(std::size_t size, std::uint32_t alphabet = 256, std::uint32_t seed = 1) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes)
    byte = static_cast<std::uint8_t>(random() % alphabet);
  return bytes;
}

TEST(DeflateStream, AStreamOfNothingIsWhole) {
  EXPECT_LT(expectRoundTrip({}, 100, "nothing"), 20U);
}

TEST(DeflateStream, EveryShortStreamComesBack) {
  for (std::size_t size = 1; size <= 600; ++size) {
    expectRoundTrip(Bytes(size, 0), 1000, std::to_string(size) + " zeros");
    expectRoundTrip(noise(size), 1000, std::to_string(size) + " bytes of noise");
    expectRoundTrip(noise(size, 2), 1000, std::to_string(size) + " bytes of two values");
  }
}

TEST(DeflateStream, NoiseOfEveryAlphabetComesBack) {
  for (const std::uint32_t alphabet : {1U, 2U, 3U, 5U, 17U, 100U, 255U, 256U})
    for (const std::size_t size : {1000U, 70000U, 262144U, 262145U, 1000000U})
      expectRoundTrip(noise(size, alphabet), 5761, std::to_string(alphabet) + " values");
}

TEST(DeflateStream, WhatCannotBeCompressedGrowsByLittle) {
  EXPECT_LE(expectRoundTrip(noise(3000000), 5761, "noise"), 3000000U + 400U);
}

TEST(DeflateStream, WhatRepeatsShrinks) {
  EXPECT_LT(expectRoundTrip(Bytes(3000000, 0), 5761, "zeros"), 15000U);
  Bytes rows;
  const Bytes row = noise(5761);
  for (int i = 0; i < 500; ++i)
    rows.insert(rows.end(), row.begin(), row.end());
  EXPECT_LT(expectRoundTrip(rows, row.size(), "equal rows"), 80000U);
}

TEST(DeflateStream, RepetitionsAtEveryDistanceComeBack) {
  const Bytes pattern = noise(40);
  for (const std::size_t distance :
       {40U, 41U, 255U, 256U, 257U, 258U, 1024U, 8193U, 32767U, 32768U, 32769U, 40000U, 262144U, 300000U}) {
    Bytes bytes(distance + 200, 0);
    for (std::size_t i = 0; i < bytes.size(); ++i)
      bytes[i] = static_cast<std::uint8_t>(i * i >> 3 ^ i >> 9);
    std::copy(pattern.begin(), pattern.end(), bytes.begin());
    std::copy(pattern.begin(), pattern.end(), bytes.begin() + static_cast<std::ptrdiff_t>(distance));
    expectRoundTrip(bytes, 1000, "distance " + std::to_string(distance));
  }
  for (std::size_t period = 1; period <= 300; ++period) {
    Bytes bytes = noise(period);
    bytes.resize(5000);
    for (std::size_t i = period; i < bytes.size(); ++i)
      bytes[i] = bytes[i - period];
    expectRoundTrip(bytes, 999, "period " + std::to_string(period));
  }
}

TEST(DeflateStream, RunsOfEveryLengthComeBack) {
  for (std::size_t length = 1; length <= 1100; ++length) {
    Bytes bytes = noise(50);
    bytes.insert(bytes.end(), length, 7);
    const Bytes end = noise(50, 256, 2);
    bytes.insert(bytes.end(), end.begin(), end.end());
    expectRoundTrip(bytes, 4096, "run of " + std::to_string(length));
  }
}

TEST(DeflateStream, ChangingContentComesBackInPiecesOfEverySize) {
  Bytes bytes;
  std::mt19937 random(3);
  while (bytes.size() < 1500000) {
    const Bytes part = random() % 2 ? noise(random() % 20000, 1 + random() % 256, random())
                                    : Bytes(random() % 20000, static_cast<std::uint8_t>(random()));
    bytes.insert(bytes.end(), part.begin(), part.end());
    if (bytes.size() > 40000) {
      const std::size_t start = bytes.size() - 1 - random() % 40000;
      const std::size_t count = std::min<std::size_t>(random() % 3000, bytes.size() - start);
      const Bytes again(bytes.begin() + static_cast<std::ptrdiff_t>(start),
                        bytes.begin() + static_cast<std::ptrdiff_t>(start + count));
      bytes.insert(bytes.end(), again.begin(), again.end());
    }
  }
  for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{7}, std::size_t{4096}, std::size_t{5761},
                                      std::size_t{300001}, bytes.size()})
    expectRoundTrip(bytes, pieceSize, "pieces of " + std::to_string(pieceSize));
}

TEST(DeflateStream, SkewedFrequenciesComeBack) {
  // Doubling frequencies want codes longer than the format has.
  Bytes bytes;
  for (std::uint32_t symbol = 0; symbol < 18; ++symbol)
    bytes.insert(bytes.end(), std::size_t{1} << symbol, static_cast<std::uint8_t>(symbol * 13));
  std::shuffle(bytes.begin(), bytes.end(), std::mt19937(5));
  expectRoundTrip(bytes, 5761, "doubling frequencies");
}

TEST(DeflateStream, PiecesOfBothKindsComeBackInAnyOrder) {
  Bytes bytes = noise(700000, 7);
  std::fill(bytes.begin() + 100000, bytes.begin() + 300000, std::uint8_t{9});
  for (const std::size_t pieceSize : {100U, 5761U, 32767U, 32768U, 32785U, 131072U, 262144U, 400000U}) {
    const std::string what = std::to_string(pieceSize);
    const auto allPlain = [](std::size_t) { return Kind::plain; };
    const auto inTurns = [](std::size_t piece) { return piece % 2 == 0 ? Kind::searched : Kind::plain; };
    const auto rarely = [](std::size_t piece) { return piece % 13 == 0 ? Kind::plain : Kind::searched; };
    EXPECT_TRUE(decompressed(compressed(bytes, pieceSize, allPlain), bytes.size()) == bytes) << what;
    EXPECT_TRUE(decompressed(compressed(bytes, pieceSize, inTurns), bytes.size()) == bytes) << what;
    EXPECT_TRUE(decompressed(compressed(bytes, pieceSize, rarely), bytes.size()) == bytes) << what;
  }
}

TEST(DeflateStream, PlainBytesGetCodesByTheirFrequency) {
  const Bytes stream = compressed(noise(1000000, 16), 5761, [](std::size_t) { return Kind::plain; });
  EXPECT_LT(stream.size(), 515000U);
}

TEST(DeflateStream, TellsWhatRepetitionsSave) {
  const auto stream = std::make_unique<DeflateStream>(100000);
  Bytes out(DeflateStream::bound(300000));
  stream->begin(out.data());
  const Bytes bytes = noise(10000);
  EXPECT_EQ(appendTo(*stream, Kind::searched, bytes), 0U);
  EXPECT_GT(appendTo(*stream, Kind::searched, bytes), 4900U);
  EXPECT_EQ(appendTo(*stream, Kind::plain, bytes), 0U);
  EXPECT_EQ(appendTo(*stream, Kind::searched, noise(10000, 256, 2)), 0U);
}

TEST(DeflateStream, WhatWasTakenBackIsNotThere) {
  const auto stream = std::make_unique<DeflateStream>(50000);
  const Bytes first = noise(50000);
  const Bytes other = noise(40000, 3, 2);
  for (const Kind kind : {Kind::searched, Kind::plain}) {
    Bytes out(DeflateStream::bound(500000));
    Bytes expected;
    stream->begin(out.data());
    // Long enough for several blocks.
    for (int i = 0; i < 10; ++i) {
      appendTo(*stream, Kind::searched, first);
      stream->takeBack();
      appendTo(*stream, kind, other);
      expected.insert(expected.end(), other.begin(), other.end());
    }
    out.resize(static_cast<std::size_t>(stream->end(true) - out.data()));
    EXPECT_TRUE(decompressed(out, expected.size()) == expected);
  }
}

TEST(DeflateStream, AStreamBehindAnotherContinuesIt) {
  const auto stream = std::make_unique<DeflateStream>(300000);
  for (const std::size_t size : {0U, 1U, 5U, 600U, 70000U, 300000U})
    for (const std::uint32_t alphabet : {1U, 2U, 256U}) {
      Bytes out(4 * DeflateStream::bound(size));
      Bytes expected;
      std::uint8_t* next = out.data();
      for (std::uint32_t part = 0; part < 4; ++part) {
        // The same bytes again, which a stream by itself must not refer to.
        const Bytes bytes = noise(size, alphabet, part / 2);
        stream->begin(next);
        appendTo(*stream, Kind::searched, bytes);
        next = stream->end(part == 3);
        expected.insert(expected.end(), bytes.begin(), bytes.end());
      }
      out.resize(static_cast<std::size_t>(next - out.data()));
      EXPECT_TRUE(decompressed(out, expected.size()) == expected) << size << " of " << alphabet;
    }
}

} // namespace
} // namespace tessarin::png
