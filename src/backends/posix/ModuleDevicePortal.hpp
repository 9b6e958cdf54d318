#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/Permissions.hpp"

#include <memory>
#include <mutex>

namespace tessarin {

// Serves the desktop portal by the module "portal", which is opened with the first question. A module that
// cannot be had is no portal; the loader has told why. Any thread.
class ModuleDevicePortal final : public DevicePortal {
 public:
  // The loader outlives the portal.
  explicit ModuleDevicePortal(ModuleLoader& loader) : loader_(loader) {}

  PortalAnswer storedAnswer(MediaKind kind) override;
  std::optional<bool> ask(MediaKind kind) override;

 private:
  DevicePortal* portal();

  ModuleLoader& loader_;
  std::mutex mutex_;
  std::unique_ptr<DevicePortal> portal_; // made under the mutex, then unchanged
};

} // namespace tessarin
