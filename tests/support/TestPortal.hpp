#pragma once

#include "support/PrivateDesktop.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// A portal of tests/desktop's program, with its arguments. Returns when it owns its names. Throws
// std::runtime_error.
inline std::unique_ptr<ChildProcess>
startPortal(const std::vector<std::pair<std::string, std::string>>& environment,
            const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {TESSARIN_TEST_PORTAL};
  all.insert(all.end(), arguments.begin(), arguments.end());
  auto portal = std::make_unique<ChildProcess>(all, ChildProcess::Settings{.environment = environment});
  if (portal->readLine() != "ready")
    throw std::runtime_error("the portal did not start");
  return portal;
}

} // namespace tessarin
