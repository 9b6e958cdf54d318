#include "modules/media/NalUnits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <random>

namespace tessarin::media {
namespace {

Bytes bytes(std::initializer_list<int> values) {
  Bytes all;
  for (const int value : values)
    all.push_back(static_cast<std::byte>(value));
  return all;
}

TEST(NalUnits, splitsAByteStreamWithLongAndShortStartCodes) {
  const Bytes stream = bytes({0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 3, 0, 0, 0, 1, 0x65, 0, 0, 3, 1, 9});
  const auto units = splitByteStream(stream);
  ASSERT_EQ(units.size(), 3U);
  EXPECT_TRUE(std::ranges::equal(units[0], bytes({0x67, 1, 2})));
  EXPECT_TRUE(std::ranges::equal(units[1], bytes({0x68, 3})));
  EXPECT_TRUE(std::ranges::equal(units[2], bytes({0x65, 0, 0, 3, 1, 9})));
}

TEST(NalUnits, findsNothingWithoutStartCodes) {
  EXPECT_TRUE(splitByteStream({}).empty());
  EXPECT_TRUE(splitByteStream(bytes({1, 2, 3, 0, 0})).empty());
  EXPECT_TRUE(splitByteStream(bytes({0, 0, 1})).empty());
}

TEST(NalUnits, splitsWhatWasPutIntoASample) {
  Bytes sample;
  appendToSample(sample, bytes({1, 2, 3}));
  appendToSample(sample, bytes({}));
  appendToSample(sample, bytes({4}));
  EXPECT_EQ(sample, bytes({0, 0, 0, 3, 1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 1, 4}));
  const auto units = splitSample(sample);
  ASSERT_EQ(units.size(), 3U);
  EXPECT_TRUE(std::ranges::equal(units[0], bytes({1, 2, 3})));
  EXPECT_TRUE(units[1].empty());
  EXPECT_TRUE(std::ranges::equal(units[2], bytes({4})));
}

TEST(NalUnits, leavesOutTheTornEndOfASample) {
  EXPECT_EQ(splitSample(bytes({0, 0, 0, 1, 7, 0, 0, 0, 2, 1})).size(), 1U);
  EXPECT_EQ(splitSample(bytes({0, 0, 0})).size(), 0U);
}

TEST(NalUnits, preventsStartCodesAsTheStandardSays) {
  const struct {
    Bytes payload, unit;
  } cases[] = {{bytes({0, 0, 0}), bytes({0, 0, 3, 0, 3})},
               {bytes({0, 0, 1}), bytes({0, 0, 3, 1})},
               {bytes({0, 0, 2}), bytes({0, 0, 3, 2})},
               {bytes({0, 0, 3}), bytes({0, 0, 3, 3})},
               {bytes({0, 0, 4}), bytes({0, 0, 4})},
               {bytes({0, 1, 0, 0, 0, 0, 5}), bytes({0, 1, 0, 0, 3, 0, 0, 5})},
               {bytes({9, 0}), bytes({9, 0, 3})},
               {bytes({}), bytes({})}};
  for (const auto& each : cases)
    EXPECT_EQ(withEmulationPrevention(each.payload), each.unit);
}

TEST(NalUnits, yieldsThePayloadAgain) {
  std::minstd_rand random(7);
  for (int round = 0; round < 200; ++round) {
    Bytes payload;
    for (int i = 0; i < 60; ++i)
      payload.push_back(static_cast<std::byte>(random() % 3 == 0 ? random() % 5 : 0));
    payload.push_back(std::byte{0x80});
    const Bytes unit = withEmulationPrevention(payload);
    EXPECT_EQ(withoutEmulationPrevention(unit), payload);
    for (std::size_t i = 0; i + 2 < unit.size(); ++i)
      EXPECT_FALSE(unit[i] == std::byte{0} && unit[i + 1] == std::byte{0} && unit[i + 2] < std::byte{3});
  }
}

} // namespace
} // namespace tessarin::media
