#include "backends/posix/ModuleDevicePortal.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ModuleDevicePortalTest : public testing::Test {
 protected:
  // Without a bus there is no portal, whatever the machine of the test has.
  ModuleDevicePortalTest() { ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1); }

  void expectNoPortal(const std::string& directory) {
    ModuleLoader loader({directory}, [this](const std::string& line) { lines.push_back(line); });
    ModuleDevicePortal portal(loader);
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_EQ(portal.storedAnswer(MediaKind::audio), PortalAnswer::noPortal);
    EXPECT_EQ(portal.storedAnswer(MediaKind::video), PortalAnswer::noPortal);
    EXPECT_EQ(portal.ask(MediaKind::audio), std::nullopt);
  }

  std::vector<std::string> lines;
};

TEST_F(ModuleDevicePortalTest, WithoutItsModuleThereIsNoPortalAndOneLineTellsWhy) {
  expectNoPortal("/nowhere");
  EXPECT_THAT(lines, ElementsAre("tessarin-native module-unavailable module=portal reason=missing"));
}

TEST_F(ModuleDevicePortalTest, TheModuleIsOpenedAndSaysNothing) {
  expectNoPortal(TESSARIN_MODULE_DIRECTORY);
  EXPECT_THAT(lines, IsEmpty());
}

} // namespace
} // namespace tessarin
