#include "base/Uuid.hpp"

#include "base/Text.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <set>

namespace tessarin {
namespace {

TEST(Uuid, isRandomInTheFormOfVersionFour) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = randomUuid();
    EXPECT_TRUE(isUuid(uuid)) << uuid;
    EXPECT_EQ(uuid[14], '4') << uuid;
    EXPECT_NE(std::string("89AB").find(uuid[19]), std::string::npos) << uuid;
    for (const char each : uuid)
      EXPECT_EQ(std::islower(static_cast<unsigned char>(each)), 0) << uuid;
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 1000U);
}

} // namespace
} // namespace tessarin
