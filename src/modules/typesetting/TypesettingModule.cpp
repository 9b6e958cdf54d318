#include "modules/typesetting/PangoTypesetter.hpp"
#include "ports/Modules.hpp"

namespace tessarin::typesetting {

namespace {

std::unique_ptr<TextTypesetter> makeTypesetter() {
  return std::make_unique<PangoTypesetter>();
}

} // namespace

} // namespace tessarin::typesetting

// The one symbol of the module.
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  static const tessarin::TypesettingModule module{{tessarin::moduleBuildId()},
                                                  tessarin::typesetting::makeTypesetter};
  return &module.header;
}
