#pragma once

#include "backends/x11/Discovery.hpp"
#include "support/PrivateDesktop.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// A desktop of the test's own, and what discovery tells of it.
class DiscoveryFixture : public ::testing::Test {
 protected:
  DiscoveryFixture() {
    // As the program does: a lost server is a failure to be told, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
  }

  void startDesktop(const PrivateDesktop::Options& options = {}) {
    desktop = std::make_unique<PrivateDesktop>(options);
    server = std::make_shared<x11::DisplayServer>(desktop->display());
    discovery = x11::makeDesktopContent(server);
  }

  TestClient& show(const std::vector<std::string>& arguments) {
    return *clients.emplace_back(desktop->client(arguments));
  }

  // Reads anew.
  const ShareableContent& look() { return latest = discovery->content(); }

  const ShareableWindow* window(std::uint32_t id) const {
    const auto found = std::find_if(latest.windows.begin(), latest.windows.end(),
                                    [&](const auto& each) { return each.windowID == id; });
    return found != latest.windows.end() ? &*found : nullptr;
  }
  const ShareableWindow* window(const TestClient& client) const { return window(client.window()); }

  // Front to back.
  std::vector<std::uint32_t> listedNumbers() const {
    std::vector<std::uint32_t> numbers;
    for (const auto& each : latest.windowList.value()) {
      numbers.push_back(each.number.value());
    }
    return numbers;
  }

  const WindowListEntry* listed(const TestClient& client) const {
    for (const auto& each : latest.windowList.value()) {
      if (each.number == client.window()) {
        return &each;
      }
    }
    return nullptr;
  }

  std::unique_ptr<PrivateDesktop> desktop;
  std::vector<std::unique_ptr<TestClient>> clients;
  std::shared_ptr<x11::DisplayServer> server;
  std::unique_ptr<DesktopContent> discovery;
  ShareableContent latest;
};

} // namespace tessarin
