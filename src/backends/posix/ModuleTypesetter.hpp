#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/Typesetting.hpp"

#include <memory>
#include <mutex>
#include <string>

namespace tessarin {

// Serves the setting of text by the module "typesetting", which is opened with the first line. Any thread.
class ModuleTypesetter final : public TextTypesetter {
 public:
  // The loader outlives the typesetter.
  explicit ModuleTypesetter(ModuleLoader& loader) : loader_(loader) {}

  // Throws TypesettingFailure also when the module cannot be had; the loader has told why.
  std::unique_ptr<TypesetLine> typesetLine(const std::string& text, const FontDescription& font) override;

 private:
  TextTypesetter& typesetter();

  ModuleLoader& loader_;
  std::mutex mutex_;
  std::unique_ptr<TextTypesetter> typesetter_; // made under the mutex, then unchanged
};

} // namespace tessarin
