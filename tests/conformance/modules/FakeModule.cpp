#include "ports/Modules.hpp"

// Shared objects in a module's place that the program must refuse.
#if defined(FAULT_WRONG_ID)
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  static const tessarin::ModuleHeader header{"of another build"};
  return &header;
}
#elif defined(FAULT_NO_HEADER)
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  return nullptr;
}
#elif defined(FAULT_NO_SYMBOL)
extern "C" __attribute__((visibility("default"))) int tessarin_something_else() {
  return 1;
}
#endif
