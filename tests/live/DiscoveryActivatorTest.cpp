#include "DiscoveryFixture.hpp"

#include "backends/x11/Activator.hpp"

#include <chrono>
#include <thread>

namespace tessarin {
namespace {

class DiscoveryActivator : public DiscoveryFixture {
 protected:
  // The window manager acts in its own time; bounded.
  static bool becomesActive(ApplicationActivator& activator, pid_t pid) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
      if (activator.isActive(pid) == true) {
        return true;
      }
      std::this_thread::yield();
    }
    return false;
  }
};

TEST_F(DiscoveryActivator, BringsAnApplicationForwardByTheWindowManager) {
  startDesktop({.hasWindowManager = true});
  const auto activator = x11::makeApplicationActivator(server);
  const auto& first = show({"--at", "10,10", "--size", "300x300"});
  const auto& second = show({"--at", "60,60", "--size", "300x300"});
  const auto front = [&] { return look().windows.front().windowID; };
  ASSERT_TRUE(becomesActive(*activator, second.pid())) << "as new windows do";

  activator->activate(first.pid());
  ASSERT_TRUE(becomesActive(*activator, first.pid()));
  EXPECT_EQ(activator->isActive(second.pid()), false);
  EXPECT_EQ(front(), first.window());

  activator->activate(second.pid());
  ASSERT_TRUE(becomesActive(*activator, second.pid()));
  EXPECT_EQ(activator->isActive(first.pid()), false);
  EXPECT_EQ(front(), second.window());
}

TEST_F(DiscoveryActivator, RaisesAndFocusesByItselfWithoutAWindowManager) {
  startDesktop();
  const auto activator = x11::makeApplicationActivator(server);
  const auto& first = show({"--at", "10,10"});
  const auto& second = show({"--at", "60,60"});
  EXPECT_EQ(activator->isActive(first.pid()), false);

  activator->activate(first.pid());
  EXPECT_EQ(activator->isActive(first.pid()), true);
  EXPECT_EQ(activator->isActive(second.pid()), false);
  EXPECT_EQ(look().windows.front().windowID, first.window());
}

TEST_F(DiscoveryActivator, KnowsNothingOfProcessesWithoutWindows) {
  startDesktop();
  const auto activator = x11::makeApplicationActivator(server);
  EXPECT_EQ(activator->isActive(getpid()), std::nullopt);
  activator->activate(getpid());
  desktop->killServer();
  EXPECT_EQ(activator->isActive(getpid()), std::nullopt);
  activator->activate(getpid());
}

} // namespace
} // namespace tessarin
