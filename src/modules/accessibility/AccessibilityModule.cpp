#include "modules/accessibility/WatchedPasswordFocus.hpp"
#include "ports/Modules.hpp"

namespace tessarin::accessibility {

namespace {

std::unique_ptr<PasswordFocus> makePasswordFocus() {
  return std::make_unique<WatchedPasswordFocus>();
}

} // namespace

} // namespace tessarin::accessibility

// The one symbol of the module.
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  static const tessarin::AccessibilityModule module{{tessarin::moduleBuildId()},
                                                    tessarin::accessibility::makePasswordFocus};
  return &module.header;
}
