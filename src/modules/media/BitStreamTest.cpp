#include "modules/media/BitStream.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin::media {
namespace {

TEST(BitStream, readsBackWhatWasWritten) {
  BitWriter writer;
  writer.bits(0b101, 3);
  for (const std::uint32_t value : {0U, 1U, 2U, 7U, 8U, 254U, 255U, 65535U, 1000000U})
    writer.ue(value);
  for (const std::int32_t value : {0, 1, -1, 2, -2, 51, -26, 40000, -40000})
    writer.se(value);
  writer.bits(0xDEADBEEF, 32);
  writer.flag(true);
  const std::size_t bits = writer.bitCount();

  BitReader reader(writer.bytes());
  EXPECT_EQ(reader.bits(3), 0b101U);
  for (const std::uint32_t value : {0U, 1U, 2U, 7U, 8U, 254U, 255U, 65535U, 1000000U})
    EXPECT_EQ(reader.ue(), value);
  for (const std::int32_t value : {0, 1, -1, 2, -2, 51, -26, 40000, -40000})
    EXPECT_EQ(reader.se(), value);
  EXPECT_EQ(reader.bits(32), 0xDEADBEEFU);
  EXPECT_TRUE(reader.flag());
  EXPECT_EQ(reader.position(), bits);
  EXPECT_FALSE(reader.isBeyondEnd());
}

TEST(BitStream, writesTheCodesOfTheStandard) {
  const struct {
    std::uint32_t value;
    std::uint32_t code;
    std::size_t length;
  } codes[] = {{0, 0b1, 1},     {1, 0b010, 3},   {2, 0b011, 3},
               {3, 0b00100, 5}, {6, 0b00111, 5}, {7, 0b0001000, 7}};
  for (const auto& each : codes) {
    BitWriter writer;
    writer.ue(each.value);
    EXPECT_EQ(writer.bitCount(), each.length);
    BitReader reader(writer.bytes());
    EXPECT_EQ(reader.bits(static_cast<int>(each.length)), each.code);
  }
}

TEST(BitStream, knowsThatItReadBeyondTheEnd) {
  const std::byte bytes[] = {std::byte{0xFF}};
  BitReader reader(bytes);
  reader.bits(8);
  EXPECT_FALSE(reader.isBeyondEnd());
  EXPECT_EQ(reader.bits(1), 0U);
  EXPECT_TRUE(reader.isBeyondEnd());
}

TEST(BitStream, refusesACodeWithoutEnd) {
  const std::byte zeros[16] = {};
  BitReader reader(zeros);
  EXPECT_EQ(reader.ue(), 0U);
  EXPECT_TRUE(reader.isBeyondEnd());
}

TEST(BitStream, alignsWithTheBitGiven) {
  BitWriter writer;
  writer.bits(0, 3);
  writer.align(true);
  writer.align(true);
  ASSERT_EQ(writer.bytes().size(), 1U);
  EXPECT_EQ(writer.bytes()[0], std::byte{0x1F});
}

TEST(BitStream, overwritesBitsAcrossBytesAndNothingElse) {
  std::byte bytes[] = {std::byte{0xFF}, std::byte{0x00}, std::byte{0xFF}};
  overwriteBits(bytes, 6, 0b0110, 4);
  EXPECT_EQ(bytes[0], std::byte{0xFD});
  EXPECT_EQ(bytes[1], std::byte{0x80});
  EXPECT_EQ(bytes[2], std::byte{0xFF});
}

} // namespace
} // namespace tessarin::media
