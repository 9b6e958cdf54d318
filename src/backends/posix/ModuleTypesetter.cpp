#include "backends/posix/ModuleTypesetter.hpp"

#include "ports/Modules.hpp"

namespace tessarin {

std::unique_ptr<TypesetLine> ModuleTypesetter::typesetLine(const std::string& text,
                                                           const FontDescription& font) {
  return typesetter().typesetLine(text, font);
}

TextTypesetter& ModuleTypesetter::typesetter() {
  const std::lock_guard lock(mutex_);
  if (!typesetter_) {
    try {
      const ModuleHeader& header = loader_.open("typesetting");
      typesetter_ = reinterpret_cast<const TypesettingModule&>(header).makeTypesetter();
    } catch (const Failure<ModuleFailure>&) {
      throw TypesettingFailure();
    }
  }
  return *typesetter_;
}

} // namespace tessarin
