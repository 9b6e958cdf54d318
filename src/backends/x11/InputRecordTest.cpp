#include "backends/x11/InputRecord.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace tessarin::x11 {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Seen = std::vector<std::pair<int, std::size_t>>; // type and size

Bytes event(std::uint8_t type) {
  Bytes bytes(32);
  bytes[0] = type;
  return bytes;
}

// A reply that goes on for so many units of four bytes, with the number in the given byte order.
Bytes reply(std::uint8_t units, bool isSwapped = false) {
  Bytes bytes(32 + units * std::size_t{4});
  bytes[0] = 1;
  bytes[isSwapped ? 7 : 4] = units;
  return bytes;
}

Bytes joined(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

Seen seen(const Bytes& bytes, bool isSwapped = false) {
  Seen found;
  forEachElement(0x400000, isSwapped, bytes, [&](const RecordedElement& element) {
    EXPECT_EQ(element.clientBase, 0x400000U);
    found.emplace_back(element.type(), element.bytes.size());
  });
  return found;
}

TEST(InputElements, LieOneBehindTheOther) {
  EXPECT_EQ(seen({}), Seen());
  EXPECT_EQ(seen(event(2)), (Seen{{2, 32}}));
  EXPECT_EQ(seen(joined({event(2), reply(0), event(4), reply(2), event(9)})),
            (Seen{{2, 32}, {1, 32}, {4, 32}, {1, 40}, {9, 32}}));
}

TEST(InputElements, HaveTheByteOrderOfTheirClient) {
  EXPECT_EQ(seen(joined({reply(2, true), event(9)}), true), (Seen{{1, 40}, {9, 32}}));
  EXPECT_EQ(seen(joined({reply(2, true), event(9)}), false), Seen()) << "a length beyond all there is";
}

TEST(InputElements, TornOnesAreLeftOut) {
  Bytes bytes = joined({event(2), event(3)});
  bytes.pop_back();
  EXPECT_EQ(seen(bytes), (Seen{{2, 32}}));
  bytes = joined({event(2), reply(2)});
  bytes.pop_back();
  EXPECT_EQ(seen(bytes), (Seen{{2, 32}}));
  Bytes endless = reply(0);
  std::fill_n(endless.begin() + 4, 4, std::uint8_t{0xFF});
  EXPECT_EQ(seen(endless), Seen());
}

TEST(InputElements, TellWhetherAClientHasSentThem) {
  int sent = 0;
  forEachElement(0, false, joined({event(9), event(9 | 0x80)}), [&](const RecordedElement& element) {
    EXPECT_EQ(element.type(), 9);
    sent += element.isSentByClient() ? 1 : 0;
  });
  EXPECT_EQ(sent, 1);
}

} // namespace
} // namespace tessarin::x11
