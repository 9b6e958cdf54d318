#include "backends/png/ZlibStream.hpp"

#include <gtest/gtest.h>

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>

namespace tessarin::png {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes compressed(const Bytes& bytes, std::size_t pieceSize) {
  constexpr std::uint8_t untouched = 0xA5;
  const std::size_t bound = ZlibStream::bound(bytes.size());
  Bytes out(bound + 1, untouched);
  const auto stream = std::make_unique<ZlibStream>(pieceSize, out.data());
  for (std::size_t offset = 0; offset < bytes.size(); offset += pieceSize) {
    const std::size_t count = std::min(pieceSize, bytes.size() - offset);
    std::memcpy(stream->piece(), bytes.data() + offset, count);
    stream->append(count);
  }
  const auto size = static_cast<std::size_t>(stream->finish() - out.data());
  EXPECT_LE(size, bound);
  EXPECT_EQ(out[bound], untouched) << "written beyond the bound";
  out.resize(size);
  return out;
}

// By another implementation, which also holds the checksum against the bytes.
Bytes decompressed(const Bytes& stream, std::size_t expectedSize) {
  Bytes bytes(expectedSize + 1);
  std::size_t consumed = 0;
  std::size_t produced = 0;
  libdeflate_decompressor* const decompressor = libdeflate_alloc_decompressor();
  const auto result = libdeflate_zlib_decompress_ex(decompressor, stream.data(), stream.size(), bytes.data(),
                                                    bytes.size(), &consumed, &produced);
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

TEST(ZlibStream, AStreamOfNothingIsWhole) {
  EXPECT_LT(expectRoundTrip({}, 100, "nothing"), 20U);
}

TEST(ZlibStream, EveryShortStreamComesBack) {
  for (std::size_t size = 1; size <= 600; ++size) {
    expectRoundTrip(Bytes(size, 0), 1000, std::to_string(size) + " zeros");
    expectRoundTrip(noise(size), 1000, std::to_string(size) + " bytes of noise");
    expectRoundTrip(noise(size, 2), 1000, std::to_string(size) + " bytes of two values");
  }
}

TEST(ZlibStream, NoiseOfEveryAlphabetComesBack) {
  for (const std::uint32_t alphabet : {1U, 2U, 3U, 5U, 17U, 100U, 255U, 256U})
    for (const std::size_t size : {1000U, 70000U, 262144U, 262145U, 1000000U})
      expectRoundTrip(noise(size, alphabet), 5761, std::to_string(alphabet) + " values");
}

TEST(ZlibStream, WhatCannotBeCompressedGrowsByLittle) {
  EXPECT_LE(expectRoundTrip(noise(3000000), 5761, "noise"), 3000000U + 400U);
}

TEST(ZlibStream, WhatRepeatsShrinks) {
  EXPECT_LT(expectRoundTrip(Bytes(3000000, 0), 5761, "zeros"), 15000U);
  Bytes rows;
  const Bytes row = noise(5761);
  for (int i = 0; i < 500; ++i)
    rows.insert(rows.end(), row.begin(), row.end());
  EXPECT_LT(expectRoundTrip(rows, row.size(), "equal rows"), 80000U);
}

TEST(ZlibStream, RepetitionsAtEveryDistanceComeBack) {
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

TEST(ZlibStream, RunsOfEveryLengthComeBack) {
  for (std::size_t length = 1; length <= 1100; ++length) {
    Bytes bytes = noise(50);
    bytes.insert(bytes.end(), length, 7);
    const Bytes end = noise(50, 256, 2);
    bytes.insert(bytes.end(), end.begin(), end.end());
    expectRoundTrip(bytes, 4096, "run of " + std::to_string(length));
  }
}

TEST(ZlibStream, ChangingContentComesBackInPiecesOfEverySize) {
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

TEST(ZlibStream, SkewedFrequenciesComeBack) {
  // Doubling frequencies want codes longer than the format has.
  Bytes bytes;
  for (std::uint32_t symbol = 0; symbol < 18; ++symbol)
    bytes.insert(bytes.end(), std::size_t{1} << symbol, static_cast<std::uint8_t>(symbol * 13));
  std::shuffle(bytes.begin(), bytes.end(), std::mt19937(5));
  expectRoundTrip(bytes, 5761, "doubling frequencies");
}

} // namespace
} // namespace tessarin::png
