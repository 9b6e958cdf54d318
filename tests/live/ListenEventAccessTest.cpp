#include "backends/x11/ListenEventAccess.hpp"

#include "support/PrivateDesktop.hpp"

#include <gtest/gtest.h>
#include <xcb/xinput.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace tessarin::x11 {
namespace {

bool isGranted(const std::string& display) {
  const auto access = makeListenEventAccess(std::make_shared<DisplayServer>(display));
  const bool granted = access->preflight();
  EXPECT_EQ(access->request(), granted);
  return granted;
}

// A pair of devices by that name, as long as the server runs.
void addInputDevices(const std::string& display, const std::string& name) {
  Connection connection(display);
  xcb_input_xi_query_version(connection.get(), 2, 1);
  std::vector<std::uint8_t> change(sizeof(xcb_input_add_master_t) + (name.size() + 3) / 4 * 4);
  xcb_input_add_master_t head{};
  head.type = XCB_INPUT_HIERARCHY_CHANGE_TYPE_ADD_MASTER;
  head.len = static_cast<std::uint16_t>(change.size() / 4);
  head.name_len = static_cast<std::uint16_t>(name.size());
  head.enable = 1;
  std::memcpy(change.data(), &head, sizeof head);
  std::memcpy(change.data() + sizeof head, name.data(), name.size());
  ASSERT_TRUE(connection.succeeded(xcb_input_xi_change_hierarchy_checked(
      connection.get(), 1, reinterpret_cast<const xcb_input_hierarchy_change_t*>(change.data()))));
}

TEST(ListenEventAccess, AnOrdinaryServerLetsItsInputBeWatched) {
  const PrivateDesktop desktop;
  EXPECT_TRUE(isGranted(desktop.display()));
  addInputDevices(desktop.display(), "second");
  EXPECT_TRUE(isGranted(desktop.display()));
}

TEST(ListenEventAccess, WithoutTheRecordExtensionThereIsNone) {
  const PrivateDesktop desktop({.serverArguments = {"-extension", "RECORD"}});
  EXPECT_FALSE(isGranted(desktop.display()));
}

TEST(ListenEventAccess, AServerInsideAnotherSessionSeesItsOwnWindowsOnly) {
  const PrivateDesktop desktop;
  addInputDevices(desktop.display(), "xwayland-pointer");
  EXPECT_FALSE(isGranted(desktop.display()));
}

TEST(ListenEventAccess, AServerOutOfReachGrantsNothing) {
  PrivateDesktop desktop;
  const auto access = makeListenEventAccess(std::make_shared<DisplayServer>(desktop.display()));
  EXPECT_TRUE(access->preflight());
  desktop.killServer();
  EXPECT_FALSE(access->preflight());
  EXPECT_FALSE(access->request());
}

} // namespace
} // namespace tessarin::x11
