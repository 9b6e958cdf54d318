#include "backends/png/PrefixCode.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

namespace tessarin::png {
namespace {

using testing::Each;
using testing::ElementsAre;

std::vector<std::uint8_t> lengthsOf(const std::vector<std::uint32_t>& frequencies, int limit) {
  std::vector<std::uint8_t> lengths(frequencies.size(), 77);
  assignLengths(frequencies, limit, lengths);
  return lengths;
}

// 1 for a code that is complete.
double share(const std::vector<std::uint8_t>& lengths) {
  double sum = 0;
  for (const std::uint8_t length : lengths)
    if (length > 0)
      sum += 1.0 / static_cast<double>(1U << length);
  return sum;
}

TEST(PrefixCode, GivesFrequentSymbolsShortCodes) {
  EXPECT_THAT(lengthsOf({1, 1, 2, 4, 8}, 15), ElementsAre(4, 4, 3, 2, 1));
  EXPECT_THAT(lengthsOf({5, 5, 5, 5}, 15), ElementsAre(2, 2, 2, 2));
  EXPECT_THAT(lengthsOf({0, 3, 0, 1, 0, 1}, 15), ElementsAre(0, 1, 0, 2, 0, 2));
}

TEST(PrefixCode, HasTwoCodesAtLeast) {
  EXPECT_THAT(lengthsOf({0, 0, 0}, 15), ElementsAre(1, 1, 0));
  EXPECT_THAT(lengthsOf({9, 0, 0}, 15), ElementsAre(1, 1, 0));
  EXPECT_THAT(lengthsOf({0, 0, 9}, 15), ElementsAre(1, 0, 1));
}

TEST(PrefixCode, CutsLongCodesToTheLimit) {
  // Each as frequent as all before: the longest code would have 39 bits.
  std::vector<std::uint32_t> doubling;
  for (int i = 0; i < 30; ++i)
    doubling.push_back(1U << i);
  for (const int limit : {5, 7, 14, 15}) {
    const auto lengths = lengthsOf(doubling, limit);
    EXPECT_THAT(lengths, Each(testing::AllOf(testing::Ge(1), testing::Le(limit))));
    EXPECT_EQ(share(lengths), 1.0);
    EXPECT_TRUE(std::is_sorted(lengths.rbegin(), lengths.rend()));
  }
}

TEST(PrefixCode, IsCompleteForEveryNumberOfSymbols) {
  std::uint32_t state = 1;
  for (std::size_t count = 2; count <= 288; ++count) {
    std::vector<std::uint32_t> frequencies(count);
    for (auto& frequency : frequencies) {
      state = state * 1664525 + 1013904223;
      frequency = 1 + (state >> (8 + state % 24));
    }
    const auto lengths = lengthsOf(frequencies, 14);
    EXPECT_EQ(share(lengths), 1.0) << count;
    EXPECT_THAT(lengths, Each(testing::AllOf(testing::Ge(1), testing::Le(14))));
  }
}

TEST(PrefixCode, IsCanonicalWithItsFirstBitLowest) {
  const std::vector<std::uint8_t> lengths = {2, 1, 3, 3, 0};
  std::vector<CodeWord> codes(lengths.size());
  assignCodes(lengths, codes);
  // Canonical: 10, 0, 110, 111.
  EXPECT_EQ(codes[0].bits, 0b01);
  EXPECT_EQ(codes[1].bits, 0b0);
  EXPECT_EQ(codes[2].bits, 0b011);
  EXPECT_EQ(codes[3].bits, 0b111);
  EXPECT_EQ(codes[2].length, 3);
  EXPECT_EQ(codes[4].length, 0);
}

} // namespace
} // namespace tessarin::png
