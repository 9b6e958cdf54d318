#include "backends/posix/ModulePasswordFocus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ModulePasswordFocusTest : public testing::Test {
 protected:
  // Without a bus there is no accessibility, whatever the machine of the test has.
  ModulePasswordFocusTest() {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    ::unsetenv("AT_SPI_BUS_ADDRESS");
  }

  // Begins twice, and expects that nothing is watched, which takes no time.
  void expectNothingWatched(const std::string& directory) {
    ModuleLoader loader({directory}, [this](const std::string& line) { lines.push_back(line); });
    ModulePasswordFocus focus(loader);
    EXPECT_FALSE(focus.isFocused());
    EXPECT_THAT(lines, IsEmpty());
    const auto start = std::chrono::steady_clock::now();
    for (int time = 0; time < 2; ++time) {
      focus.begin();
      EXPECT_FALSE(focus.isFocused());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  }

  std::vector<std::string> lines;
};

TEST_F(ModulePasswordFocusTest, WithoutItsModuleNothingIsFocusedAndOneLineTellsWhy) {
  expectNothingWatched("/nowhere");
  EXPECT_THAT(lines, ElementsAre("tessarin-native module-unavailable module=accessibility reason=missing"));
}

TEST_F(ModulePasswordFocusTest, TheModuleIsOpenedAndSaysNothing) {
  expectNothingWatched(TESSARIN_MODULE_DIRECTORY);
  EXPECT_THAT(lines, IsEmpty());
}

} // namespace
} // namespace tessarin
