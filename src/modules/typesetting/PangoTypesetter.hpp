#pragma once

#include "modules/typesetting/Handles.hpp"
#include "ports/Typesetting.hpp"

#include <memory>
#include <mutex>
#include <string>

namespace tessarin::typesetting {

// The fonts of one typesetter and of the lines that it has set. The library shares fonts and their caches
// between a font map's lines, so whatever uses it or a line of it does so under the mutex.
struct FontStock {
  std::mutex mutex;
  Handle<PangoFontMap> fonts;
};

// Text set by Pango with the fonts that are installed. Letters are placed where their unhinted widths put
// them, so that measures do not depend on the scale at which a line is drawn. Any thread; lines of one
// typesetter may be used at once and may outlive it.
class PangoTypesetter final : public TextTypesetter {
 public:
  PangoTypesetter();

  // Throws TypesettingFailure where no font is installed.
  std::unique_ptr<TypesetLine> typesetLine(const std::string& text, const FontDescription& font) override;

 private:
  const std::shared_ptr<FontStock> stock_;
};

} // namespace tessarin::typesetting
