#include "modules/portal/DesktopPortal.hpp"
#include "ports/Modules.hpp"

namespace tessarin::portal {

namespace {

std::unique_ptr<DevicePortal> makeDevicePortal() {
  return std::make_unique<DesktopPortal>();
}

} // namespace

} // namespace tessarin::portal

// The one symbol of the module.
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  static const tessarin::PortalModule module{{tessarin::moduleBuildId()}, tessarin::portal::makeDevicePortal};
  return &module.header;
}
