#include "backends/posix/ModuleDevicePortal.hpp"

namespace tessarin {

PortalAnswer ModuleDevicePortal::storedAnswer(MediaKind kind) {
  DevicePortal* const it = portal();
  return it ? it->storedAnswer(kind) : PortalAnswer::noPortal;
}

std::optional<bool> ModuleDevicePortal::ask(MediaKind kind) {
  DevicePortal* const it = portal();
  return it ? it->ask(kind) : std::nullopt;
}

// Null without the module.
DevicePortal* ModuleDevicePortal::portal() {
  const std::lock_guard lock(mutex_);
  if (!portal_) {
    try {
      const ModuleHeader& header = loader_.open("portal");
      portal_ = reinterpret_cast<const PortalModule&>(header).makeDevicePortal();
    } catch (const Failure<ModuleFailure>&) {
      return nullptr;
    }
  }
  return portal_.get();
}

} // namespace tessarin
